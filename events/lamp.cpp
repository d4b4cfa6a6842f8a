// SPDX-License-Identifier: LicenseRef-KT6120

// The lamp: steps, off, and the level that the MCU reports.

#include "eventhandler.h"

#include "childprocess.h"
#include "gpio.h"
#include "keys.h"
#include "lamp.h"
#include "logmessages.h"
#include "paths.h"
#include "settings.h"

#include <QDebug>

#include <chrono>

using namespace std::chrono_literals;

namespace
{

constexpr int lampOffValue = -1;

constexpr char lampPowerOn[] = "0";
constexpr char lampPowerOff[] = "1";
constexpr auto gpioWait = 10000ms;

// The level sent to the MCU: nine tenths, rounded half up.
int scaledLevel(int level)
{
    return (level * 9 + 5) / 10;
}

} // namespace

void eventHandler::lampValueReported(SOURCE_TYPE_t source, const uint8_t *level)
{
    if (tallwickDetected != 0)
        return;
    if (source == SOURCE_MCU)
        lampLevel = *level;
    else
        answerLampValue(source);
    qInfo() << messages::lampLevel << int(lampLevel);
    storeLampLevel();
}

void eventHandler::answerLampValue(SOURCE_TYPE_t source)
{
    eventHandlerSendCommand(source, QString("LampValue %1\r\n").arg(int(lampLevel)));
}

void eventHandler::lampUp(SOURCE_TYPE_t)
{
    if (tallwickDetected != 0)
        return;
    switchLampPower(lampPowerOn);
    eventHandlerUpdateLamp(true);
    storeLampLevel();
}

void eventHandler::lampDown(SOURCE_TYPE_t)
{
    if (tallwickDetected != 0)
        return;
    if (lampLevel > 0)
        switchLampPower(lampPowerOn);
    eventHandlerUpdateLamp(false);
    storeLampLevel();
}

// Keeps the level, so that the next step up starts from it.
void eventHandler::lampOff(SOURCE_TYPE_t)
{
    switchLampPower(lampPowerOff);
    store->settingsSetValue(keys::lampLevel, lampOffValue);
    eventHandlerSendCommand(SOURCE_MCU, "LAMP:OFF\r\n");
}

void eventHandler::eventHandlerUpdateLamp(bool up)
{
    // A signed 8-bit number: a step from a high level that the MCU reported can wrap, below 0
    // (which gives 0) or to a small level.
    int candidate = up ? lampLevel + lamp::step : lampLevel - lamp::step;
    if (candidate > INT8_MAX)
        candidate -= 256;
    candidate = qBound(0, candidate, int(lampMaximum));
    if (candidate == lampLevel)
        return;
    lampLevel = static_cast<uint8_t>(candidate);
    const int scaled = scaledLevel(lampLevel);
    qInfo() << messages::lampLevel << int(lampLevel) << "% (Scaled " << scaled << "%)";
    eventHandlerSendCommand(SOURCE_MCU, QString("LAMP:SET %1\r\n").arg(scaled));
    eventHandlerSendCommand(SOURCE_MCU, "LAMP:ON\r\n");
    if (lampLevel == 0)
        switchLampPower(lampPowerOff);
}

void eventHandler::switchLampPower(const char *lineValue)
{
    childprocess::run(this, {paths::gpioWriteScript, {gpio::lampPower, lineValue}}, gpioWait);
}

void eventHandler::storeLampLevel()
{
    store->settingsSetValue(keys::lampLevel, int(lampLevel));
}
