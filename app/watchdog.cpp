// SPDX-License-Identifier: LicenseRef-KT6120
#include "watchdog.h"

#include <chrono>
#include <systemd/sd-daemon.h>

namespace
{

// Often, so that nearly the whole period is left to the longest turn of the loop.
constexpr int feedsPerPeriod = 10;

} // namespace

Watchdog::Watchdog()
{
    QTimer::singleShot(0, &feeding, [] { sd_notify(0, "READY=1"); });

    uint64_t period = 0; // microseconds
    if (sd_watchdog_enabled(0, &period) <= 0)
        return;
    QObject::connect(&feeding, &QTimer::timeout, [] { sd_notify(0, "WATCHDOG=1"); });
    feeding.start(std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::microseconds(period / feedsPerPeriod)));
}
