// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QString>

#include <array>
#include <chrono>
#include <mutex>
#include <optional>

// Detects whether the unit's program runs, by the changes of its status store. The age of the last
// change is measured with a monotonic clock, since the unit's clock may be wrong or be set. Call
// look() every few seconds.
class Freshness
{
public:
    struct State {
        double age = -1; // seconds since the last observed change; negative before the first
        bool silent = true;
        QString since; // the unit's time of that change; before the first, the file's time
    };

    Freshness();

    State look();

private:
    using Mark = std::array<qint64, 6>;
    static Mark markOfStore(); // all zero without a store

    std::mutex mutex;
    Mark mark;
    std::optional<std::chrono::steady_clock::time_point> changed; // seen by look()
    QString since;
};
