// SPDX-License-Identifier: LicenseRef-KT6120

// Values that the MCU reports: updates state and store and checks bands.

#include "eventhandler.h"

#include "bands.h"
#include "keys.h"
#include "logmessages.h"
#include "settings.h"

#include <QDebug>

namespace
{

// Battery voltage per raw count.
constexpr double voltageScale = 3.13;

} // namespace

void eventHandler::batteryStateReported(SOURCE_TYPE_t, const int32_t *state)
{
    const int32_t before = batteryState;
    batteryState = *state;
    store->settingsSetValue(keys::batteryState, batteryState);
    if (batteryState != before)
        qInfo() << messages::batteryState << batteryState;
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
    store->settingsSetValue(keys::computeTemperature, computeTemperature / 100.0);
}

void eventHandler::eventHandlerParseBatteryVoltage()
{
    store->settingsSetValue(keys::batteryVoltage, batteryVoltage);
    checkBand(batteryVoltage, bands::batteryVoltage, voltageAlarm);
}

void eventHandler::eventHandlerParseBatteryCurrent()
{
    store->settingsSetValue(keys::batteryCurrent, batteryCurrent);
    checkBand(batteryCurrent, bands::batteryCurrent, currentAlarm);
}

void eventHandler::eventHandlerParseComputeTemperature()
{
    checkBand(computeTemperature, bands::computeTemperature, temperatureAlarm);
}

void eventHandler::checkBand(int reading, const bands::Band &band, Alarm &alarm)
{
    // A reading equal to a limit does not change the state.
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
    store->settingsSetValue(keys::cameraType, cameraType);
    qInfo() << messages::cameraType << cameraType;
}

void eventHandler::coilerValueReported(SOURCE_TYPE_t, const int16_t *count)
{
    coilerCount = *count;
    store->settingsSetValue(keys::coilerCount, int(coilerCount));
}

void eventHandler::mcuVersionReported(SOURCE_TYPE_t, const QString *version)
{
    mcuVersion = *version;
    store->settingsSetValue(keys::mcuVersion, mcuVersion);
}

void eventHandler::tallwickReported(SOURCE_TYPE_t, const uint8_t *flag)
{
    if (*flag == tallwickDetected)
        return;
    tallwickDetected = *flag;
    store->settingsSetValue(keys::tallwickDetected, int(tallwickDetected));
    if (tallwickDetected != 1)
        return;
    // A Tallwick probe has its own lamp, so the unit's lamp is switched off and locked.
    eventHandlerProcess(EVENT_LampOff, SOURCE_MCU, nullptr);
    lampLevel = 0;
    storeLampLevel();
    eventHandlerSendCommand(SOURCE_MCU, "LAMP:SET 0\r\n");
}
