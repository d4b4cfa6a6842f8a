// SPDX-License-Identifier: LicenseRef-KT6120

// Commands and requests of the phone, the commands file and the links, except those of the lamp:
// sonde, reel, identification, shutdown, video switch, MCU log.

#include "eventhandler.h"

#include "childprocess.h"
#include "gpio.h"
#include "inifile.h"
#include "mculog.h"
#include "paths.h"
#include "settings.h"
#include "version.h"

#include <QDebug>

#include <chrono>

using namespace std::chrono_literals;

namespace
{

constexpr auto sondeWait = 1000ms;
constexpr auto shutdownWait = 10000ms;

constexpr char coilerModelKey[] = "Coiler/Model"; // of the configuration file
constexpr char defaultCoilerModel[] = "x40";
constexpr char defaultSondeFrequency[] = "512";

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
    qInfo() << (on ? "Sonde Turned On" : "Sonde Turned Off");
    sondeEnabled = on ? 1 : 0;
    store->settingsSetValue("Sonde/Enabled", int(sondeEnabled));
    eventHandlerSendCommand(SOURCE_MCU, on ? "SONDE:ON\r\n" : "SONDE:OFF\r\n");
}

void eventHandler::sondeFrequencyGiven(SOURCE_TYPE_t, const QString *frequency)
{
    sondeFrequency = *frequency;
    store->settingsSetValue("Sonde/Frequency", sondeFrequency);
}

void eventHandler::answerSondeFrequency(SOURCE_TYPE_t source)
{
    const QVariant stored = store->settingsGetValue("Sonde/Frequency", defaultSondeFrequency);
    eventHandlerSendCommand(source, "SondeFreq " + stored.toString());
}

void eventHandler::answerSondeState(SOURCE_TYPE_t source)
{
    eventHandlerSendCommand(source, QString("SondeState %1\r\n").arg(int(sondeEnabled)));
}

void eventHandler::shutDown(SOURCE_TYPE_t)
{
    qCritical() << "Shutdown Event Triggered";
    childprocess::run(this, childprocess::fromLine(paths::shutdownCommand), shutdownWait);
}

void eventHandler::answerCoilerValue(SOURCE_TYPE_t source)
{
    // Read from the store each time: other programs may set the offset there.
    coilerOffset = store->settingsGetValue("Camera/CoilerOffset", "0").toDouble();
    coilerDistance = coilerCount * encoderScalar + coilerOffset;
    eventHandlerSendCommand(source, QString("CoilerValue %1\r").arg(coilerDistance, 0, 'g', 6));
}

// The held counter does not change until the MCU's next report.
void eventHandler::setCoiler(SOURCE_TYPE_t, const double *metres)
{
    eventHandlerSendCommand(SOURCE_MCU, "COILER:ZERO\r\n");
    store->settingsSetValue("Camera/Coiler", QString("0"));
    coilerOffset = metres ? *metres : 0.0;
    qInfo() << "Coiler offset set to " << coilerOffset << "m";
    store->settingsSetValue("Camera/CoilerOffset", coilerOffset);
}

void eventHandler::coilerModelGiven(SOURCE_TYPE_t, const QString *model)
{
    coilerModel = *model;
    configuration->setValue(coilerModelKey, coilerModel);
    configuration->writeSoon();
}

void eventHandler::answerCoilerModel(SOURCE_TYPE_t source)
{
    const QVariant stored = configuration->value(coilerModelKey, defaultCoilerModel);
    eventHandlerSendCommand(source, "Model " + stored.toString() + "\r\n");
}

void eventHandler::startStream(SOURCE_TYPE_t)
{
    qInfo() << "EVENT_StreamStart";
    if (streamAddress.isEmpty() || streamPort.isEmpty())
        emit eventHandlerNullParams();
    else
        qInfo() << "Stream Started at " << streamAddress << ":" << streamPort;
}

void eventHandler::stopStream(SOURCE_TYPE_t)
{
    if (!streamActive)
        return;
    emit eventHandlerStopStreaming();
    streamActive = false;
    qInfo() << "Stream Stopped";
}

void eventHandler::startPal(SOURCE_TYPE_t)
{
    emit eventHandlerStartPAL();
    qInfo() << "PAL Output Started";
}

void eventHandler::stopPal(SOURCE_TYPE_t)
{
    emit eventHandlerStopPAL();
    qInfo() << "PAL Output Stopped";
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
    store->settingsSetValue("Commands/Unknown", unknownCommands);
}
