// SPDX-License-Identifier: LicenseRef-KT6120
#include "busybee.h"

#include "childprocess.h"
#include "keys.h"
#include "paths.h"
#include "settings.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

using namespace std::chrono_literals;

namespace
{

constexpr auto readInterval = 20s;
constexpr auto scriptWait = 1000ms;

constexpr int fullScaleMillivolts = 3300;
constexpr int fullScaleReading = 255;

constexpr double milliampsPerMillivoltLed = 0.02;
constexpr double milliampsPerMillivoltInterstage = 0.1;

// Readings of the thermistors from -25 degrees Celsius upwards in steps of 5.
constexpr BusyBee::LookupTable thermistor = {241, 236, 229, 221, 212, 201, 188, 174, 159, 143,
                                             128, 112, 98,  85,  73,  62,  53,  45,  38,  32,
                                             27,  23,  19,  16,  14,  12,  10,  9,   7};
constexpr int thermistorTable = 0;
constexpr int firstTemperature = -2500;
constexpr int temperatureStep = 500;

enum class Conversion { Temperature, Voltage, LedCurrent, InterstageCurrent };

// The board's channels in reading order, with the factor of the voltage divider.
struct Channel {
    int number;
    Conversion conversion;
    double factor;
    Key<int> key;
};

constexpr Channel channels[] = {
    {0x12, Conversion::Temperature, 1.0, keys::boostTemperature},
    {0x15, Conversion::Temperature, 1.0, keys::ledTemperature},
    {0x11, Conversion::Voltage, 12.82, keys::interstageVoltage},
    {0x01, Conversion::Voltage, 8.27, keys::encoderVoltage},
    {0x13, Conversion::Voltage, 8.27, keys::cameraVoltage},
    {0x14, Conversion::Voltage, 8.27, keys::sondeVoltage},
    {0x07, Conversion::LedCurrent, 1.0, keys::ledCurrent},
    {0x10, Conversion::InterstageCurrent, 1.0, keys::interstageCurrent},
    {0x16, Conversion::LedCurrent, 1.0, keys::tallwickLedCurrent},
};

// Truncates towards zero; a script may print a number far beyond eight bits.
int toInt(double value)
{
    return int(std::clamp(value, double(std::numeric_limits<int>::min()),
                          double(std::numeric_limits<int>::max())));
}

// Milliamperes, rounded half up.
int toCurrent(int millivolts, double milliampsPerMillivolt)
{
    return toInt(std::floor(double(float(millivolts)) * milliampsPerMillivolt + 0.5));
}

int convert(const BusyBee &board, const Channel &channel, int raw)
{
    switch (channel.conversion) {
    case Conversion::Temperature:
        return board.convertTemperature(raw, thermistorTable);
    case Conversion::Voltage:
        return BusyBee::convertVoltage(raw, channel.factor);
    case Conversion::LedCurrent:
        return BusyBee::convertCurrentLEDs(BusyBee::convertVoltage(raw, channel.factor));
    case Conversion::InterstageCurrent:
        return BusyBee::convertCurrentIntersage(BusyBee::convertVoltage(raw, channel.factor));
    }
    Q_UNREACHABLE();
}

} // namespace

BusyBee::BusyBee(QObject *parent, settings *store)
    : QObject(parent), settingsStore(store), lookupTables{thermistor}
{
    connect(&readTimer, &QTimer::timeout, this, &BusyBee::processADC);
    readTimer.start(readInterval);
}

unsigned int BusyBee::read_i2c(int channel)
{
    const QString line = paths::adcReadCommand + QString("0x%1").arg(channel, 0, 16);
    const QByteArray printed = childprocess::output(this, childprocess::fromLine(line), scriptWait);
    return QString::fromUtf8(printed.constData()).trimmed().toUInt(nullptr, 16);
}

int BusyBee::convertVoltage(int raw, double factor)
{
    const qint64 millivolts = qint64(fullScaleMillivolts) * raw / fullScaleReading;
    return toInt(double(millivolts) * factor);
}

int BusyBee::convertTemperature(int raw, int table) const
{
    const LookupTable &readings = lookupTables.at(size_t(table));
    const qint64 reading = quint32(raw);
    int temperature = firstTemperature;
    for (size_t i = 1; i < readings.size(); ++i) {
        temperature += temperatureStep;
        const qint64 entry = readings[i];
        if (entry <= reading) {
            const qint64 step = temperatureStep * (reading - entry) / (readings[i - 1] - entry);
            return toInt(double(temperature - step));
        }
    }
    return keys::noTemperature;
}

int BusyBee::convertCurrentIntersage(int millivolts)
{
    return toCurrent(millivolts, milliampsPerMillivoltInterstage);
}

int BusyBee::convertCurrentLEDs(int millivolts)
{
    return toCurrent(millivolts, milliampsPerMillivoltLed);
}

void BusyBee::processADC()
{
    for (const Channel &channel : channels) {
        const int raw = int(read_i2c(channel.number));
        settingsStore->settingsSetValue(channel.key, convert(*this, channel, raw));
    }
}
