// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QElapsedTimer>
#include <QTimer>

class commsExternal;

// Notifies systemd in the first iteration of the event loop that the program is ready, then feeds
// its watchdog ten times per period. All lines that the app sent at once are handled in one
// iteration, so each of them feeds the watchdog too. Does nothing if systemd does not request it.
class Watchdog
{
public:
    explicit Watchdog(const commsExternal &app);

private:
    QTimer feedTimer;
    QElapsedTimer sinceFeed;
};
