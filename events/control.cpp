// SPDX-License-Identifier: LicenseRef-KT6120

// Commands and requests of the phone, the commands file and the links, except those of the lamp:
// sonde, reel, identification, shutdown, video switch, MCU log.

#include "eventhandler.h"

#include "childprocess.h"
#include "gpio.h"
#include "keys.h"
#include "logmessages.h"
#include "mculog.h"
#include "paths.h"
#include "reel.h"
#include "settings.h"
#include "version.h"

#include <QDebug>

#include <chrono>

using namespace std::chrono_literals;

namespace
{

constexpr auto sondeWait = 1000ms;
constexpr auto shutdownWait = 10000ms;

} // namespace

void eventHandler::answerBatteryState(SOURCE_TYPE_t source)
{
    eventHandlerSendCommand(source, QString("BatteryState %1\r").arg(batteryState));
}

void eventHandler::answerBatteryLevel(SOURCE_TYPE_t source)
{
    eventHandlerSendCommand(source, QString("BatteryLevel %1\r").arg(batteryVoltage));
}

void eventHandler::sondeOn(SOURCE_TYPE_t)
{
    switchSonde(true);
}

void eventHandler::sondeOff(SOURCE_TYPE_t)
{
    switchSonde(false);
}

void eventHandler::switchSonde(bool on)
{
    childprocess::run(this, {paths::sondeEnableScript, {gpio::sondeEnable, on ? "1" : "0"}},
                      sondeWait);
    qInfo() << (on ? messages::sondeOn : messages::sondeOff);
    sondeEnabled = on ? 1 : 0;
    store->settingsSetValue(keys::sondeEnabled, int(sondeEnabled));
    eventHandlerSendCommand(SOURCE_MCU, on ? "SONDE:ON\r\n" : "SONDE:OFF\r\n");
}

void eventHandler::sondeFrequencyGiven(SOURCE_TYPE_t, const QString *frequency)
{
    sondeFrequency = *frequency;
    store->settingsSetValue(keys::sondeFrequency, sondeFrequency);
}

void eventHandler::answerSondeFrequency(SOURCE_TYPE_t source)
{
    const QVariant stored = store->settingsGetValue(keys::sondeFrequency);
    eventHandlerSendCommand(source, "SondeFreq " + stored.toString());
}

void eventHandler::answerSondeState(SOURCE_TYPE_t source)
{
    eventHandlerSendCommand(source, QString("SondeState %1\r\n").arg(int(sondeEnabled)));
}

void eventHandler::shutDown(SOURCE_TYPE_t)
{
    qCritical() << messages::shutdownStarted;
    childprocess::run(this, childprocess::fromLine(paths::shutdownCommand), shutdownWait);
}

void eventHandler::answerCoilerValue(SOURCE_TYPE_t source)
{
    // Read from the store each time: other programs may set the offset there.
    coilerOffset = store->settingsGetValue(keys::coilerOffset).toDouble();
    coilerDistance = reel::distance(coilerCount, encoderScalar, coilerOffset);
    eventHandlerSendCommand(source, QString("CoilerValue %1\r").arg(reel::text(coilerDistance)));
}

// The held counter does not change until the MCU's next report.
void eventHandler::setCoiler(SOURCE_TYPE_t, const double *metres)
{
    eventHandlerSendCommand(SOURCE_MCU, "COILER:ZERO\r\n");
    store->settingsSetValue(keys::coilerCount, 0);
    coilerOffset = metres ? *metres : 0.0;
    qInfo() << messages::coilerOffset << coilerOffset << "m";
    store->settingsSetValue(keys::coilerOffset, coilerOffset);
}

void eventHandler::coilerModelGiven(SOURCE_TYPE_t, const QString *model)
{
    coilerModel = *model;
    configuration.setValue(keys::coilerModel, coilerModel);
    configuration.writeSoon();
}

void eventHandler::answerCoilerModel(SOURCE_TYPE_t source)
{
    const QVariant stored = configuration.value(keys::coilerModel);
    eventHandlerSendCommand(source, "Model " + stored.toString() + "\r\n");
}

void eventHandler::startStream(SOURCE_TYPE_t)
{
    qInfo() << messages::streamEvent;
    if (streamAddress.isEmpty() || streamPort.isEmpty())
        emit eventHandlerNullParams();
    else
        qInfo() << messages::streamStarted << streamAddress << ":" << streamPort;
}

void eventHandler::stopStream(SOURCE_TYPE_t)
{
    if (!streamActive)
        return;
    emit eventHandlerStopStreaming();
    streamActive = false;
    qInfo() << messages::streamStopped;
}

void eventHandler::startPal(SOURCE_TYPE_t)
{
    emit eventHandlerStartPAL();
    qInfo() << messages::palStarted;
}

void eventHandler::stopPal(SOURCE_TYPE_t)
{
    emit eventHandlerStopPAL();
    qInfo() << messages::palStopped;
}

void eventHandler::answerIdn(SOURCE_TYPE_t source)
{
    eventHandlerSendCommand(
        source, QString("%1 v%2.%3.%4\r\n")
                    .arg(version::product, version::major, version::minor, version::build));
}

void eventHandler::answerComputeTemperature(SOURCE_TYPE_t source)
{
    eventHandlerSendCommand(source, QString("Temp:Compute %1\r").arg(computeTemperature));
}

void eventHandler::answerTallwick(SOURCE_TYPE_t source)
{
    eventHandlerSendCommand(source, QString("TWK %1\r").arg(int(tallwickDetected)));
}

void eventHandler::mcuLogGiven(SOURCE_TYPE_t, const QString *text)
{
    mcuLog = *text;
    eventHandlerWriteLogs();
}

void eventHandler::eventHandlerWriteLogs()
{
    writeMcuLog(mcuLog);
}

void eventHandler::resetMcuLog(SOURCE_TYPE_t)
{
    eventHandlerSendCommand(SOURCE_MCU, "LOGS:RESET\r\n");
    emit eventHandlerUpdateLogs();
}

void eventHandler::countUnknownCommand(SOURCE_TYPE_t)
{
    ++unknownCommands;
    store->settingsSetValue(keys::unknownCommands, unknownCommands);
}
