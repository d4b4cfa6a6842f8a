// SPDX-License-Identifier: LicenseRef-KT6120
#include "watchdog.h"

#include "commsexternal.h"

#include <chrono>
#include <systemd/sd-daemon.h>

namespace
{

// Nearly the whole period remains for the longest iteration of the loop.
constexpr int feedsPerPeriod = 10;

} // namespace

Watchdog::Watchdog(const commsExternal &app)
{
    QTimer::singleShot(0, &feedTimer, [] { sd_notify(0, "READY=1"); });

    uint64_t period = 0; // microseconds
    if (sd_watchdog_enabled(0, &period) <= 0)
        return;
    const auto interval = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::microseconds(period / feedsPerPeriod));
    const auto feed = [this] {
        sd_notify(0, "WATCHDOG=1");
        sinceFeed.start();
    };
    QObject::connect(&feedTimer, &QTimer::timeout, feed);
    feedTimer.start(interval);
    sinceFeed.start();
    // Runs after the event handler, which was connected first.
    QObject::connect(&app, &commsExternal::commsExternalEvent, &feedTimer, [this, feed, interval] {
        if (sinceFeed.hasExpired(interval.count()))
            feed();
    });
}
