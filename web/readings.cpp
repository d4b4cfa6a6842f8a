// SPDX-License-Identifier: LicenseRef-KT6120
#include "readings.h"

#include "catalogue.h"
#include "paths.h"
#include "safefile.h"

#include <QFile>

#include <cctype>
#include <cmath>
#include <cstring>
#include <iterator>

namespace
{

constexpr char defaultModel[] = "x40";

constexpr char celsius[] = "°C";

constexpr qint64 longestFile = 1 << 16; // bytes

// A value as QSettings writes it: with quotes where it needs them, and escapes.
QString plain(const QByteArray &written)
{
    static constexpr char letters[] = "abfnrtv";
    static constexpr char meant[] = "\a\b\f\n\r\t\v";
    QString text;
    for (int at = 0; at < written.size(); ++at) {
        if (written[at] == '"')
            continue;
        if (written[at] != '\\' || at + 1 == written.size()) {
            text += QLatin1Char(written[at]);
            continue;
        }
        const char escape = written[++at];
        if (escape == 'x') {
            uint code = 0;
            while (at + 1 < written.size() && isxdigit(uchar(written[at + 1])))
                code = code << 4 | uint(QByteArray(1, written[++at]).toInt(nullptr, 16));
            text += QChar(ushort(code));
        } else if (const char *letter = escape ? strchr(letters, escape) : nullptr) {
            text += QLatin1Char(meant[letter - letters]);
        } else {
            text += QLatin1Char(escape);
        }
    }
    return text;
}

readings::Values valuesOf(const char *path)
{
    QFile file(path);
    if (!safefile::open(file, QIODevice::ReadOnly))
        return {};
    return readings::parse(file.read(longestFile));
}

} // namespace

namespace readings
{

// clang-format off
const Reading table[] = {
    {"Battery/Voltage", "Battery voltage", Kind::Number, nullptr, "V", 0.001, 3,
     "battery_voltage_volts", "", "Battery voltage."},
    {"Battery/Current", "Battery current", Kind::Number, nullptr, "A", 0.001, 3,
     "battery_current_amperes", "", "Current drawn from the battery."},
    {"Battery/State", "Battery state", Kind::Number, nullptr, "", 1, 0,
     "battery_state", "", "Battery state as the microcontroller reports it."},
    {"Temperature/CM3", "Compute module", Kind::Number, nullptr, celsius, 1, 1,
     "temperature_celsius", R"(sensor="compute_module")", "Temperatures in the unit."},
    {"Temperature/Internal", "Processor", Kind::Number, nullptr, celsius, 1, 1,
     "temperature_celsius", R"(sensor="processor")", nullptr},
    {"Temperature/Boost", "Boost converter", Kind::Number, nullptr, celsius, 0.01, 1,
     "temperature_celsius", R"(sensor="boost")", nullptr},
    {"Temperature/LED", "LED driver", Kind::Number, nullptr, celsius, 0.01, 1,
     "temperature_celsius", R"(sensor="led")", nullptr},
    {"Voltage/Inter", "Interstage voltage", Kind::Number, nullptr, "V", 0.001, 3,
     "voltage_volts", R"(rail="interstage")", "Supply voltages in the unit."},
    {"Voltage/Encoder", "Encoder voltage", Kind::Number, nullptr, "V", 0.001, 3,
     "voltage_volts", R"(rail="encoder")", nullptr},
    {"Voltage/Camera", "Camera voltage", Kind::Number, nullptr, "V", 0.001, 3,
     "voltage_volts", R"(rail="camera")", nullptr},
    {"Voltage/Sonde", "Sonde voltage", Kind::Number, nullptr, "V", 0.001, 3,
     "voltage_volts", R"(rail="sonde")", nullptr},
    {"Current/LedOut", "LED current", Kind::Number, nullptr, "A", 0.001, 3,
     "current_amperes", R"(rail="led")", "Currents in the unit."},
    {"Current/Inter", "Interstage current", Kind::Number, nullptr, "A", 0.001, 3,
     "current_amperes", R"(rail="interstage")", nullptr},
    {"Current/LedTallwick", "Tallwick LED current", Kind::Number, nullptr, "A", 0.001, 3,
     "current_amperes", R"(rail="led_tallwick")", nullptr},
    {"Camera/Type", "Camera type", Kind::Text, "not reported", "", 1, 0,
     "camera_type", "", "Camera type as the microcontroller reports it."},
    {"Camera/Lamp", "Lamp", Kind::Lamp, nullptr, "%", 1, 0,
     "lamp_ratio", "", "Lamp level, 0 to 1; 0 when it is off."},
    {"Camera/Coiler", "Reel counter", Kind::Number, nullptr, "counts", 1, 0,
     "reel_counts", "", "Reel counter since it was zeroed."},
    {"Camera/CoilerOffset", "Reel offset", Kind::Number, "0", "m", 1, 2,
     "reel_offset_meters", "", "Metres added to the reel's distance."},
    {"Coiler/Model", "Reel model", Kind::Text, defaultModel, "", 1, 0, nullptr, "", nullptr},
    {"Sonde/Enabled", "Sonde", Kind::Switch, "0", "", 1, 0,
     "sonde_enabled", "", "1 while the sonde is on."},
    {"Sonde/Frequency", "Sonde frequency", Kind::Text, "512", "", 1, 0, nullptr, "", nullptr},
    {"Tallwick/Detected", "Tallwick probe", Kind::Presence, "0", "", 1, 0,
     "tallwick_attached", "", "Nonzero while a Tallwick probe locks the lamp."},
    {"Commands/Unknown", "Unknown commands", Kind::Number, "0", "", 1, 0,
     "unknown_commands_total", "", "Commands that the unit did not know."},
    {"MCU/Version", "MCU firmware", Kind::Text, nullptr, "", 1, 0, nullptr, "", nullptr},
    {"Compute/SoftwareVersion", "Software", Kind::Text, nullptr, "", 1, 0, nullptr, "", nullptr},
};
// clang-format on
const int count = int(std::size(table));

Values parse(const QByteArray &ini)
{
    Values values;
    QByteArray section;
    const QList<QByteArray> lines = ini.split('\n');
    for (const QByteArray &line : lines) {
        const int equals = int(line.indexOf('='));
        if (line.startsWith('[') && line.endsWith(']'))
            section = line.mid(1, line.size() - 2) + '/';
        else if (equals > 0)
            values.insert(QString::fromLatin1(section + line.left(equals)),
                          plain(line.mid(equals + 1)));
    }
    return values;
}

// Not by QSettings: it takes a file for the one it knows whose size and time are the same, and the
// unit writes several times within the file system's tick.
Values read()
{
    Values values = valuesOf(paths::statusStore);
    if (values.isEmpty())
        return values; // a missing key means something only where there are others
    const Values configured = valuesOf(paths::configuration);
    for (auto entry = configured.begin(); entry != configured.end(); ++entry)
        values.insert(entry.key(), entry.value());
    for (const Reading &reading : table) {
        if (reading.absent && !values.contains(reading.key))
            values.insert(reading.key, reading.absent);
    }
    return values;
}

double number(const Reading &reading, const Values &values)
{
    bool ok = false;
    const double value = values.value(reading.key).toDouble(&ok);
    return ok && std::isfinite(value) ? value : std::nan("");
}

QByteArray text(const Reading &reading, const Values &values)
{
    const QString stored = values.value(reading.key);
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
    case Kind::Number:
    case Kind::Text:
        break;
    }
    const QByteArray shown = QByteArray::number(value * reading.scale, 'f', reading.decimals);
    return *reading.unit ? shown + ' ' + reading.unit : shown;
}

const char *level(const Reading &reading, const Values &values, const Catalogue &catalogue)
{
    if (reading.kind == Kind::Text)
        return values.value(reading.key).isEmpty() ? "fault" : "normal";
    const double value = number(reading, values);
    if (std::isnan(value))
        return "fault";
    const Catalogue::Band band = catalogue.band(reading.key);
    return value > band.above && value < band.below ? "normal" : "warning";
}

} // namespace readings
