// SPDX-License-Identifier: LicenseRef-KT6120
#include "readings.h"

#include "inivalues.h"
#include "paths.h"
#include "reel.h"
#include "safefile.h"

#include <QFile>

#include <cmath>

namespace
{

constexpr char celsius[] = "°C";

// The page's groups.
constexpr char supply[] = "Supply";
constexpr char temperatures[] = "Temperatures";
constexpr char reelAndLamp[] = "Reel and lamp";
constexpr char unit[] = "Unit";

// Seconds from the program's start in which a first reading must come, twice what a healthy unit
// takes: two seconds of announcements and a poll cycle of 2.1 s; the processor's temperature every
// 10 s; the ADC board's nine channels every 20 s.
constexpr int polled = 10;
constexpr int measured = 20;
constexpr int converted = 40;

// Bytes. An app can set a text of 32 KiB, each byte of which takes up to six in the file.
constexpr qint64 longestFile = 1 << 18;

// Adds a file's values. QSettings takes an unquoted one with commas, such as the reel models, for a
// list.
void add(readings::Values &values, const char *path)
{
    QFile file(path);
    if (!safefile::open(file, QIODevice::ReadOnly))
        return;
    const QMap<QString, QVariant> found = iniValues(file.read(longestFile));
    for (auto entry = found.begin(); entry != found.end(); ++entry)
        values.insert(entry.key(), entry.value().toStringList().join(','));
}

} // namespace

namespace readings
{

// clang-format off
const std::vector<Reading> &all()
{
    static const std::vector<Reading> rows = {
        {keys::batteryVoltage, "Battery voltage", supply, polled, Kind::Number, nullptr, "V", 0.001,
         3, "battery_voltage_volts", "", "Battery voltage.", &bands::batteryVoltage},
        {keys::batteryCurrent, "Battery current", supply, polled, Kind::Number, nullptr, "A", 0.001,
         3, "battery_current_amperes", "", "Current drawn from the battery.",
         &bands::batteryCurrent},
        {keys::batteryState, "Battery state", supply, polled, Kind::Number, nullptr, "", 1, 0,
         "battery_state", "", "Battery state as the microcontroller reports it."},
        {keys::computeTemperature, "Compute module", temperatures, polled, Kind::Number, nullptr,
         celsius, 1, 1, "temperature_celsius", R"(sensor="compute_module")",
         "Temperatures in the unit.", &bands::computeTemperature, 100},
        {keys::processorTemperature, "Processor", temperatures, measured, Kind::Number, nullptr,
         celsius, 1, 1, "temperature_celsius", R"(sensor="processor")"},
        {keys::boostTemperature, "Boost converter", temperatures, converted, Kind::Number, nullptr,
         celsius, 0.01, 1, "temperature_celsius", R"(sensor="boost")"},
        {keys::ledTemperature, "LED driver", temperatures, converted, Kind::Number, nullptr,
         celsius, 0.01, 1, "temperature_celsius", R"(sensor="led")"},
        {keys::interstageVoltage, "Interstage voltage", supply, converted, Kind::Number, nullptr,
         "V", 0.001, 3, "voltage_volts", R"(rail="interstage")", "Supply voltages in the unit."},
        {keys::encoderVoltage, "Encoder voltage", supply, converted, Kind::Number, nullptr, "V",
         0.001, 3, "voltage_volts", R"(rail="encoder")"},
        {keys::cameraVoltage, "Camera voltage", supply, converted, Kind::Number, nullptr, "V",
         0.001, 3, "voltage_volts", R"(rail="camera")"},
        {keys::sondeVoltage, "Sonde voltage", supply, converted, Kind::Number, nullptr, "V", 0.001,
         3, "voltage_volts", R"(rail="sonde")"},
        {keys::ledCurrent, "LED current", supply, converted, Kind::Number, nullptr, "A", 0.001, 3,
         "current_amperes", R"(rail="led")", "Currents in the unit."},
        {keys::interstageCurrent, "Interstage current", supply, converted, Kind::Number, nullptr,
         "A", 0.001, 3, "current_amperes", R"(rail="interstage")"},
        {keys::tallwickLedCurrent, "Tallwick LED current", supply, converted, Kind::Number, nullptr,
         "A", 0.001, 3, "current_amperes", R"(rail="led_tallwick")"},
        {keys::cameraType, "Camera type", unit, polled, Kind::Text, "not reported", "", 1, 0,
         "camera_type", "", "Camera type as the microcontroller reports it."},
        {keys::lampLevel, "Lamp", reelAndLamp, polled, Kind::Lamp, keys::lampLevel.absent, "%", 1,
         0, "lamp_ratio", "", "Lamp level, 0 to 1; 0 when it is off."},
        {distance, "Distance", reelAndLamp, polled, Kind::Distance, nullptr, "m", 1, 0,
         "reel_distance_meters", "", "Distance of the reel, as the app gets it."},
        {keys::coilerCount, "Reel counter", reelAndLamp, polled, Kind::Number, nullptr, "counts", 1,
         0, "reel_counts", "", "Reel counter since it was zeroed."},
        {keys::coilerOffset, "Reel offset", reelAndLamp, polled, Kind::Number,
         keys::coilerOffset.absent, "m", 1, 2, "reel_offset_meters", "",
         "Metres added to the reel's distance."},
        {keys::coilerModel, "Reel model", reelAndLamp, polled, Kind::Text, keys::coilerModel.absent},
        {keys::sondeEnabled, "Sonde", reelAndLamp, polled, Kind::Switch, keys::sondeEnabled.absent,
         "", 1, 0, "sonde_enabled", "", "1 while the sonde is on."},
        {keys::sondeFrequency, "Sonde frequency", reelAndLamp, polled, Kind::Text,
         keys::sondeFrequency.absent},
        {keys::tallwickDetected, "Tallwick probe", reelAndLamp, polled, Kind::Presence,
         keys::tallwickDetected.absent, "", 1, 0, "tallwick_attached", "",
         "Nonzero while a Tallwick probe locks the lamp."},
        {keys::unknownCommands, "Unknown commands", unit, polled, Kind::Number,
         keys::unknownCommands.absent, "", 1, 0, "unknown_commands_total", "",
         "Commands that the unit did not know."},
        {keys::mcuVersion, "MCU firmware", unit, polled, Kind::Text},
        {keys::softwareVersion, "Software", unit, polled, Kind::Text},
    };
    return rows;
}
// clang-format on

Values read()
{
    Values values;
    add(values, paths::statusStore);
    if (values.isEmpty())
        return values; // defaults hold only beside other values
    add(values, paths::configuration);
    for (const AnyKey &key : {AnyKey(keys::boostTemperature), AnyKey(keys::ledTemperature)}) {
        if (values.value(key.name) == QString::number(keys::noTemperature))
            values.remove(key.name);
    }
    for (const Reading &reading : all()) {
        if (reading.absent && !values.contains(reading.key.name))
            values.insert(reading.key.name, reading.absent);
    }
    if (values.contains(keys::coilerCount.name)) {
        const auto held = [&values](const AnyKey &key) {
            return values.value(key.name, key.absent);
        };
        const double metres =
            reel::distance(held(keys::coilerCount).toInt(), held(keys::encoderScalar).toDouble(),
                           held(keys::coilerOffset).toDouble());
        values.insert(distance.name, reel::text(metres));
    }
    return values;
}

double number(const Reading &reading, const Values &values)
{
    bool ok = true;
    const QString stored = values.value(reading.key.name);
    const double value = stored == "false" ? 0 : stored.toDouble(&ok);
    return ok && std::isfinite(value) ? value : std::nan("");
}

QByteArray text(const Reading &reading, const Values &values)
{
    const QString stored = values.value(reading.key.name);
    const double value = number(reading, values);
    if (reading.kind == Kind::Text || std::isnan(value))
        return stored.isEmpty() ? "no reading" : stored.toUtf8();
    switch (reading.kind) {
    case Kind::Switch:
        return value != 0 ? "on" : "off";
    case Kind::Presence:
        return value != 0 ? "attached" : "none";
    case Kind::Lamp:
        if (value < 0)
            return "off";
        break;
    case Kind::Distance:
        return stored.toUtf8() + ' ' + reading.unit;
    case Kind::Number:
    case Kind::Text:
        break;
    }
    const QByteArray shown = QByteArray::number(value * reading.scale, 'f', reading.decimals);
    return *reading.unit ? shown + ' ' + reading.unit : shown;
}

const char *level(const Reading &reading, const Values &values)
{
    if (reading.kind == Kind::Text)
        return values.value(reading.key.name).isEmpty() ? "fault" : "normal";
    const double value = number(reading, values);
    if (std::isnan(value))
        return "fault";
    const bands::Band *band = reading.band;
    if (!band)
        return "normal";
    const double compared = value * reading.bandScale;
    const bool under = band->underWarning && compared <= band->lower;
    return under || compared >= band->upper ? "warning" : "normal";
}

} // namespace readings
