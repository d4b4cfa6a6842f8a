// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QTimer>

// Tells the service manager that the event loop runs: that start-up is over in its first turn,
// and ten times a period of the manager's watchdog that it still turns. Does nothing where no
// service manager has asked for it.
class Watchdog
{
public:
    Watchdog();

private:
    QTimer feeding;
};
