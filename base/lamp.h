// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

// The lamp's levels in percent, for the program and the page.
namespace lamp
{

inline constexpr int step = 15;
inline constexpr int fullCurrent = 30; // milliamperes at 100 percent

// The highest level under a limit of the LEDs' current, rounded half up; 0 if the limit is invalid.
constexpr int highest(int milliamperes)
{
    if (milliamperes < 1 || milliamperes > fullCurrent)
        return 0;
    return (milliamperes * 100 + fullCurrent / 2) / fullCurrent;
}

} // namespace lamp
