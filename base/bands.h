// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "logmessages.h"

// The limits of readings. Outside them the program logs a warning and the page marks the reading.
namespace bands
{

// A reading between the limits is normal. One that equals a limit does not change the program's
// state; the page marks it, unless there is no warning for that limit.
struct Band {
    int lower;
    int upper;
    const char *underWarning; // log message; null if a low reading is normal
    const char *overWarning;
};

// Millivolts: raw reading times 3.13.
inline constexpr Band batteryVoltage = {5500, 8600, messages::batteryUnder, messages::batteryOver};
// Milliamperes.
inline constexpr Band batteryCurrent = {0, 1500, nullptr, messages::currentOver};
// Hundredths of a degree Celsius.
inline constexpr Band computeTemperature = {-1000, 7000, messages::temperatureUnder,
                                            messages::temperatureOver};

} // namespace bands
