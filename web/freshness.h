// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QString>

#include <array>
#include <chrono>
#include <mutex>

// Whether the unit's program is at work: its status store changes. What counts is the age of the
// last change that was seen, on a monotonic clock: the unit's clock may be wrong, and is set. So
// somebody has to look every few seconds.
class Freshness
{
public:
    struct State {
        double age = -1; // seconds since the last change that was seen; negative before the first
        bool silent = true;
        QString since; // the unit's time of that change; before the first, what the file bears
    };

    Freshness();

    State look();

private:
    using Mark = std::array<qint64, 6>;
    static Mark markOfStore(); // all zero where there is none

    std::mutex mutex;
    Mark mark;
    bool seen = false;
    std::chrono::steady_clock::time_point changed;
    QString since;
};
