// SPDX-License-Identifier: LicenseRef-KT6120
#include "clock.h"

#include <stdexcept>

namespace
{

constexpr double second = 1e9; // ns

} // namespace

Clock::Clock()
{
    if (page.open() && page.resize(sizeof(Pace)))
        pace = reinterpret_cast<Pace *>(page.map(0, sizeof(Pace)));
    if (!pace)
        throw std::runtime_error("cannot make the page of the unit's pace");
    setPace(1, 0);
    wall.start();
}

void Clock::setPace(int speed, double stride)
{
    __atomic_store_n(&pace->stride, int64_t(stride * second), __ATOMIC_RELAXED);
    __atomic_store_n(&pace->speed, speed, __ATOMIC_RELAXED);
}

int Clock::speed() const
{
    return int(__atomic_load_n(&pace->speed, __ATOMIC_RELAXED));
}

double Clock::seconds() const
{
    if (board)
        return board();
    const int64_t skipped = __atomic_load_n(&pace->skipped, __ATOMIC_RELAXED);
    return double(wall.nsecsElapsed() + skipped) / second;
}
