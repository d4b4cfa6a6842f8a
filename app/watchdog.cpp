// SPDX-License-Identifier: LicenseRef-KT6120
#include "watchdog.h"

#include "commsexternal.h"

#include <chrono>
#include <systemd/sd-daemon.h>

namespace
{

// Often, so that nearly the whole period is left to the longest turn of the loop.
constexpr int feedsPerPeriod = 10;

} // namespace

Watchdog::Watchdog(const commsExternal &app)
{
    QTimer::singleShot(0, &feeding, [] { sd_notify(0, "READY=1"); });

    uint64_t period = 0; // microseconds
    if (sd_watchdog_enabled(0, &period) <= 0)
        return;
    const auto interval = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::microseconds(period / feedsPerPeriod));
    const auto feed = [this] {
        sd_notify(0, "WATCHDOG=1");
        fed.start();
    };
    QObject::connect(&feeding, &QTimer::timeout, feed);
    feeding.start(interval);
    fed.start();
    // The handler was connected before, so this comes when the line's event is done.
    QObject::connect(&app, &commsExternal::commsExternalEvent, &feeding, [this, feed, interval] {
        if (fed.hasExpired(interval.count()))
            feed();
    });
}
