// SPDX-License-Identifier: LicenseRef-KT6120

// Content of the commands file, which the unit's web page writes.

#include "fuzzworld.h"

#include "eventhandler.h"
#include "paths.h"
#include "testsupport.h"

void fuzz::start() {}

void fuzz::input(const QByteArray &bytes)
{
    testsupport::writeFile(paths::commandsFile, bytes);
    eventHandler handler;
    handler.eventHandlerFIFOChanged(paths::commandsFile);
    askEverything(handler);
}
