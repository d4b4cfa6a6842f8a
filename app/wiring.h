// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QMetaObject>

#include <vector>

class commsExternal;
class commsInternal;
class eventHandler;
class VideoLibrary;

// The four components that live as long as the process.
struct Components {
    eventHandler *events;
    commsInternal *mcu;
    commsExternal *app;
    VideoLibrary *video;
};

// Registers the event enumerations and connects the components, all thirteen connections in
// the order of the table in wiring.cpp. A connection that failed tests false; the last one,
// which stops the PAL output, is reported at debug level.
std::vector<QMetaObject::Connection> connectComponents(const Components &components);
