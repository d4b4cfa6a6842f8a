// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "eventtypes.h"

#include <QByteArray>

#include <cstddef>
#include <cstdint>

class eventHandler;

// What the fuzzers share. Each defines fuzz::start and fuzz::input; the entrances that libFuzzer
// calls, the application object and a quiet log are in fuzzworld.cpp.
namespace fuzz
{

// Once, before the first input; the world is fresh.
void start();
// One input, handled to its end.
void input(const QByteArray &bytes);

// Ends the process as a finding unless the condition holds.
void require(bool condition, const char *what);

// Everything that can be asked of the event handler, from the phone and the commands file.
void askEverything(eventHandler &handler);

} // namespace fuzz
