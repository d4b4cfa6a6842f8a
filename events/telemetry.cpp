// SPDX-License-Identifier: LicenseRef-KT6120

// Values that the MCU reports: updates state and store and checks bands.

#include "eventhandler.h"

#include "settings.h"

#include <QDebug>

// Readings strictly between the limits are normal. A reading equal to a limit does not change the
// state.
struct eventHandler::Band {
    int lower;
    int upper;
    const char *underWarning; // null: there is no lower limit
    const char *overWarning;

    static const Band batteryVoltage;
    static const Band batteryCurrent;
    static const Band computeTemperature; // hundredths of a degree Celsius
};

constexpr eventHandler::Band eventHandler::Band::batteryVoltage = {
    5500, 8600, "Battery Voltage Under Threshold (", "Battery Voltage Over Threshold ("};
constexpr eventHandler::Band eventHandler::Band::batteryCurrent = {
    0, 1500, nullptr, "Battery Current Over Threshold ("};
constexpr eventHandler::Band eventHandler::Band::computeTemperature = {
    -1000, 7000, "Compute Module Temperature Under Threshold (",
    "Compute Module Temperature Over Threshold ("};

namespace
{

// Battery voltage per raw count.
constexpr double voltageScale = 3.13;

} // namespace

void eventHandler::batteryStateReported(SOURCE_TYPE_t, const int32_t *state)
{
    const int32_t before = batteryState;
    batteryState = *state;
    store->settingsSetValue("Battery/State", batteryState);
    if (batteryState != before)
        qInfo() << "Battery State Changed to: " << batteryState;
}

void eventHandler::batteryVoltageReported(SOURCE_TYPE_t, const uint16_t *raw)
{
    const auto scaled = static_cast<unsigned>(*raw * voltageScale);
    batteryVoltage = static_cast<uint16_t>(scaled);
    eventHandlerParseBatteryVoltage();
}

void eventHandler::currentReported(SOURCE_TYPE_t, const uint16_t *current)
{
    batteryCurrent = *current;
    eventHandlerParseBatteryCurrent();
}

void eventHandler::thermistorReported(SOURCE_TYPE_t, const int16_t *hundredths)
{
    computeTemperature = *hundredths;
    eventHandlerParseComputeTemperature();
    store->settingsSetValue("Temperature/CM3", computeTemperature / 100.0);
}

void eventHandler::eventHandlerParseBatteryVoltage()
{
    store->settingsSetValue("Battery/Voltage", batteryVoltage);
    checkBand(batteryVoltage, Band::batteryVoltage, voltageAlarm);
}

void eventHandler::eventHandlerParseBatteryCurrent()
{
    store->settingsSetValue("Battery/Current", batteryCurrent);
    checkBand(batteryCurrent, Band::batteryCurrent, currentAlarm);
}

void eventHandler::eventHandlerParseComputeTemperature()
{
    checkBand(computeTemperature, Band::computeTemperature, temperatureAlarm);
}

void eventHandler::checkBand(int reading, const Band &band, Alarm &alarm)
{
    if (reading == band.lower || reading == band.upper)
        return;
    Alarm now = Alarm::Normal;
    const char *warning = nullptr;
    if (reading > band.upper) {
        now = Alarm::Over;
        warning = band.overWarning;
    } else if (reading < band.lower) {
        now = Alarm::Under;
        warning = band.underWarning;
    }
    if (now != alarm && warning)
        qWarning() << warning << reading << ")";
    alarm = now;
}

void eventHandler::cameraTypeReported(SOURCE_TYPE_t, const int32_t *type)
{
    cameraType = *type;
    store->settingsSetValue("Camera/Type", cameraType);
    qInfo() << "Camera Type Updated to " << cameraType;
}

void eventHandler::coilerValueReported(SOURCE_TYPE_t, const int16_t *count)
{
    coilerCount = *count;
    store->settingsSetValue("Camera/Coiler", int(coilerCount));
}

void eventHandler::mcuVersionReported(SOURCE_TYPE_t, const QString *version)
{
    mcuVersion = *version;
    store->settingsSetValue("MCU/Version", mcuVersion);
}

void eventHandler::tallwickReported(SOURCE_TYPE_t, const uint8_t *flag)
{
    if (*flag == tallwickDetected)
        return;
    tallwickDetected = *flag;
    store->settingsSetValue("Tallwick/Detected", int(tallwickDetected));
    if (tallwickDetected != 1)
        return;
    // A Tallwick probe has its own lamp, so the unit's lamp is switched off and locked.
    eventHandlerProcess(EVENT_LampOff, SOURCE_MCU, nullptr);
    lampLevel = 0;
    storeLampLevel();
    eventHandlerSendCommand(SOURCE_MCU, "LAMP:SET 0\r\n");
}
