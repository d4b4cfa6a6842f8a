// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QElapsedTimer>
#include <QTimer>

class commsExternal;

// Tells the service manager that the event loop runs: that start-up is over in its first turn,
// and ten times a period of the manager's watchdog that it still turns. All lines of one read of
// the app's are one turn: there, each line that was carried out tells the same. Does nothing where
// no service manager has asked for it.
class Watchdog
{
public:
    explicit Watchdog(const commsExternal &app);

private:
    QTimer feeding;
    QElapsedTimer fed;
};
