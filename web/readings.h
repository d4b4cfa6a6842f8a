// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "bands.h"
#include "keys.h"

#include <QByteArray>
#include <QMap>
#include <QString>

#include <vector>

// The status store's values as the page and Prometheus show them.
namespace readings
{

enum class Kind {
    Number,
    Text,
    Switch,   // on or off
    Presence, // attached or none
    Lamp,     // percent; -1: off
    Distance, // metres, with the digits of the app's answer
};

struct Reading {
    AnyKey key;
    const char *label;
    const char *group;
    int due; // seconds from the program's start in which a first reading must come
    Kind kind;
    const char *absent = nullptr; // value of a missing key; null: a healthy unit has the key
    const char *unit = "";
    double scale = 1; // stored value to unit
    int decimals = 0;
    const char *metric = nullptr; // without the leading kt6120_; null: not exported
    const char *labels = "";      // of the metric
    const char *help = nullptr;   // of the metric, in its first row
    const bands::Band *band = nullptr;
    double bandScale = 1; // stored value to the unit of the band
};

// Not in the store: computed from its counter and offset and the configured scalar.
inline constexpr AnyKey distance = {"Reel/Distance", nullptr};

const std::vector<Reading> &all();

using Values = QMap<QString, QString>;

// Store and configuration by "Group/Entry", with the default values of missing keys. Empty without
// a store.
Values read();

// The stored number; NaN if there is none.
double number(const Reading &reading, const Values &values);
QByteArray text(const Reading &reading, const Values &values);
// "normal", "warning" outside the band, "fault" without a reading.
const char *level(const Reading &reading, const Values &values);

} // namespace readings
