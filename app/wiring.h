// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QMetaObject>

#include <vector>

class commsExternal;
class commsInternal;
class eventHandler;
class VideoLibrary;

// The four components of the program.
struct Components {
    eventHandler *events;
    commsInternal *mcu;
    commsExternal *app;
    VideoLibrary *video;
};

// Registers the event enumerations and makes the thirteen connections, in the order of the table in
// wiring.cpp. A failed connection tests false. The last one, which stops the PAL output, is
// reported at debug level.
std::vector<QMetaObject::Connection> connectComponents(const Components &components);
