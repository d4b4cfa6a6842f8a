// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

class Catalogue;

// The status store as people and Prometheus read it.
namespace readings
{

enum class Kind {
    Number,
    Text,
    Switch,   // on or off
    Presence, // attached or none
    Lamp,     // percent; -1 is off
};

struct Reading {
    const char *key;
    const char *label;
    Kind kind;
    const char *absent; // what a missing key means; null: a healthy unit has it
    const char *unit;
    double scale; // stored value to unit
    int decimals;
    const char *metric; // without the leading kt6120_; null: not exported
    const char *labels; // of the metric
    const char *help;   // of the metric, in its first row
};

extern const Reading table[];
extern const int count;

using Values = QMap<QString, QString>;

// What stands in the store and in the configuration, by "Group/Entry", and what missing keys mean;
// nothing where there is no store.
Values read();
Values parse(const QByteArray &ini);

// The stored number; NaN where there is none.
double number(const Reading &reading, const Values &values);
QByteArray text(const Reading &reading, const Values &values);
// "normal", "warning" outside its band, "fault" where there is no reading.
const char *level(const Reading &reading, const Values &values, const Catalogue &catalogue);

} // namespace readings
