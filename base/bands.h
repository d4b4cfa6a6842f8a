// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "logmessages.h"

// The limits of readings: the program warns and the page marks a reading by these.
namespace bands
{

// A reading strictly between the limits is normal.
struct Band {
    int lower;
    int upper;
    const char *underWarning; // log message; null: a low reading is normal
    const char *overWarning;
};

// Raw reading times 3.13.
inline constexpr Band batteryVoltage = {5500, 8600, messages::batteryUnder, messages::batteryOver};
// Milliamperes.
inline constexpr Band batteryCurrent = {0, 1500, nullptr, messages::currentOver};
// Hundredths of a degree Celsius.
inline constexpr Band computeTemperature = {-1000, 7000, messages::temperatureUnder,
                                            messages::temperatureOver};

} // namespace bands
