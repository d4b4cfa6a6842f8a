// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "pace.h"

#include <QElapsedTimer>
#include <QTemporaryFile>

#include <functional>

// The unit's time: the wall clock's, and what the program has skipped of it while it rested.
class Clock
{
public:
    Clock(); // throws std::runtime_error where the page cannot be made

    // How many times as fast as the wall clock the unit's time runs while the program rests, and
    // how many seconds a rest lasts at least (0: as long as it asks).
    void setPace(int speed, double stride);
    int speed() const;

    // Seconds of the unit's time since the start of the bench.
    double seconds() const;

    // Takes the unit's time from there, in seconds, which is a board's own.
    void follow(std::function<double()> source) { board = std::move(source); }
    bool isBoards() const { return bool(board); }

    // For a program that is to run at this pace.
    QString file() const { return page.fileName(); }

private:
    QTemporaryFile page;
    Pace *pace = nullptr;
    QElapsedTimer wall;
    std::function<double()> board;
};
