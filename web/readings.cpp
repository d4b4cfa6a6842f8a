// SPDX-License-Identifier: LicenseRef-KT6120
#include "readings.h"

#include "paths.h"
#include "reel.h"
#include "safefile.h"

#include <QFile>

#include <cctype>
#include <cmath>
#include <cstring>

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
constexpr char byteOrderMark[] = "\xef\xbb\xbf";

// Removes the quotes and escapes that QSettings writes.
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

// As QSettings: a semicolon outside quotes begins a comment.
QByteArray withoutComment(const QByteArray &line)
{
    bool quoted = false;
    for (int at = 0; at < line.size(); ++at) {
        if (line[at] == '\\')
            ++at; // the next character is escaped
        else if (line[at] == '"')
            quoted = !quoted;
        else if (line[at] == ';' && !quoted)
            return line.left(at);
    }
    return line;
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
         celsius, 1, 1, "temperature_celsius", R"(sensor="processor")", nullptr},
        {keys::boostTemperature, "Boost converter", temperatures, converted, Kind::Number, nullptr,
         celsius, 0.01, 1, "temperature_celsius", R"(sensor="boost")", nullptr},
        {keys::ledTemperature, "LED driver", temperatures, converted, Kind::Number, nullptr,
         celsius, 0.01, 1, "temperature_celsius", R"(sensor="led")", nullptr},
        {keys::interstageVoltage, "Interstage voltage", supply, converted, Kind::Number, nullptr,
         "V", 0.001, 3, "voltage_volts", R"(rail="interstage")", "Supply voltages in the unit."},
        {keys::encoderVoltage, "Encoder voltage", supply, converted, Kind::Number, nullptr, "V",
         0.001, 3, "voltage_volts", R"(rail="encoder")", nullptr},
        {keys::cameraVoltage, "Camera voltage", supply, converted, Kind::Number, nullptr, "V",
         0.001, 3, "voltage_volts", R"(rail="camera")", nullptr},
        {keys::sondeVoltage, "Sonde voltage", supply, converted, Kind::Number, nullptr, "V", 0.001,
         3, "voltage_volts", R"(rail="sonde")", nullptr},
        {keys::ledCurrent, "LED current", supply, converted, Kind::Number, nullptr, "A", 0.001, 3,
         "current_amperes", R"(rail="led")", "Currents in the unit."},
        {keys::interstageCurrent, "Interstage current", supply, converted, Kind::Number, nullptr,
         "A", 0.001, 3, "current_amperes", R"(rail="interstage")", nullptr},
        {keys::tallwickLedCurrent, "Tallwick LED current", supply, converted, Kind::Number, nullptr,
         "A", 0.001, 3, "current_amperes", R"(rail="led_tallwick")", nullptr},
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
        {keys::coilerModel, "Reel model", reelAndLamp, polled, Kind::Text, keys::coilerModel.absent,
         "", 1, 0, nullptr, "", nullptr},
        {keys::sondeEnabled, "Sonde", reelAndLamp, polled, Kind::Switch, keys::sondeEnabled.absent,
         "", 1, 0, "sonde_enabled", "", "1 while the sonde is on."},
        {keys::sondeFrequency, "Sonde frequency", reelAndLamp, polled, Kind::Text,
         keys::sondeFrequency.absent, "", 1, 0, nullptr, "", nullptr},
        {keys::tallwickDetected, "Tallwick probe", reelAndLamp, polled, Kind::Presence,
         keys::tallwickDetected.absent, "", 1, 0, "tallwick_attached", "",
         "Nonzero while a Tallwick probe locks the lamp."},
        {keys::unknownCommands, "Unknown commands", unit, polled, Kind::Number,
         keys::unknownCommands.absent, "", 1, 0, "unknown_commands_total", "",
         "Commands that the unit did not know."},
        {keys::mcuVersion, "MCU firmware", unit, polled, Kind::Text, nullptr, "", 1, 0, nullptr, "",
         nullptr},
        {keys::softwareVersion, "Software", unit, polled, Kind::Text, nullptr, "", 1, 0, nullptr,
         "", nullptr},
    };
    return rows;
}
// clang-format on

Values parse(const QByteArray &ini)
{
    Values values;
    QByteArray section;
    const QList<QByteArray> lines = ini.mid(ini.startsWith(byteOrderMark) ? 3 : 0).split('\n');
    for (const QByteArray &written : lines) {
        const QByteArray line = withoutComment(written).trimmed();
        const int equals = int(line.indexOf('='));
        if (line.startsWith('['))
            section = line.mid(1, line.indexOf(']') - 1).trimmed() + '/';
        else if (equals > 0)
            values.insert(QString::fromLatin1(section + line.left(equals).trimmed()),
                          plain(line.mid(equals + 1).trimmed()));
    }
    return values;
}

// Without QSettings: it does not read a file again whose size and time are unchanged, but the unit
// writes several times within one tick of the file system's clock.
Values read()
{
    Values values = valuesOf(paths::statusStore);
    if (values.isEmpty())
        return values; // defaults hold only beside other values
    const Values configured = valuesOf(paths::configuration);
    for (auto entry = configured.begin(); entry != configured.end(); ++entry)
        values.insert(entry.key(), entry.value());
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
