#include "eventhandler.h"

#include "busybee.h"
#include "monitor.h"
#include "settings.h"

#include <QDebug>
#include <QFileSystemWatcher>

#include <array>

eventHandler::eventHandler(QObject *parent) : QObject(parent), store(new settings(this))
{
    new monitor(this, store);
    new BusyBee(this, store);
    unknownCommands =
        static_cast<uint16_t>(store->settingsGetValue("Commands/Unknown", "0").toInt());
    readConfiguration();
    eventHandlerSetupFifo();
}

eventHandler::~eventHandler() = default;

void eventHandler::eventHandlerProcess(EVENT_TYPE_t event, SOURCE_TYPE_t source, void *ptr)
{
    using self = eventHandler;
    // Indexed by event; null: ignored.
    static constexpr std::array<Handler, 40> handlers = {
        /* EVENT_BatteryState */ &self::batteryStateReported,
        /* EVENT_BatteryStateRequest */ &self::answerBatteryState,
        /* EVENT_BatteryVoltage */ &self::batteryVoltageReported,
        /* EVENT_BatteryLevelRequest */ &self::answerBatteryLevel,
        /* EVENT_SondeOn */ &self::sondeOn,
        /* EVENT_SondeOff */ &self::sondeOff,
        /* EVENT_SondeFrequency */ &self::sondeFrequencyGiven,
        /* EVENT_SondeFrequencyRequest */ &self::answerSondeFrequency,
        /* EVENT_SondeStateRequest */ &self::answerSondeState,
        /* EVENT_Current */ &self::currentReported,
        /* EVENT_LampValueRequest */ &self::answerLampValue,
        /* EVENT_LampValue */ &self::lampValueReported,
        /* EVENT_LampUp */ &self::lampUp,
        /* EVENT_LampDown */ &self::lampDown,
        /* EVENT_LampOff */ &self::lampOff,
        /* EVENT_Shutdown */ &self::shutDown,
        /* EVENT_CameraType */ &self::cameraTypeReported,
        /* EVENT_CoilerValue */ &self::coilerValueReported,
        /* EVENT_CoilerValueRequest */ &self::answerCoilerValue,
        /* EVENT_CoilerSet */ &self::setCoiler,
        /* EVENT_EncoderValue */ nullptr,
        /* EVENT_McuVersion */ &self::mcuVersionReported,
        /* 22 */ nullptr,
        /* 23 */ nullptr,
        /* EVENT_StreamStart */ &self::startStream,
        /* EVENT_StreamStop */ &self::stopStream,
        /* EVENT_PALStart */ &self::startPal,
        /* EVENT_PALStop */ &self::stopPal,
        /* EVENT_IdnRequest */ &self::answerIdn,
        /* EVENT_Thermistor */ &self::thermistorReported,
        /* EVENT_ComputeTemperatureRequest */ &self::answerComputeTemperature,
        /* 31 */ nullptr,
        /* 32 */ nullptr,
        /* EVENT_TallwickDetected */ &self::tallwickReported,
        /* EVENT_TallwickDetectRequest */ &self::answerTallwick,
        /* EVENT_CoilerModel */ &self::coilerModelGiven,
        /* EVENT_CoilerModelRequest */ &self::answerCoilerModel,
        /* EVENT_WriteLogs */ &self::mcuLogGiven,
        /* EVENT_ResetLogs */ &self::resetMcuLog,
        /* EVENT_UnknownCommand */ &self::countUnknownCommand,
    };
    const auto index = static_cast<size_t>(event); // a negative value becomes a large one
    if (index < handlers.size() && handlers[index])
        (this->*handlers[index])(source, ptr);
}

void eventHandler::eventHandlerSendCommand(SOURCE_TYPE_t destination, QString text)
{
    switch (destination) {
    case SOURCE_MCU:
    case SOURCE_DEBUG:
        emit eventHandlerSendInternalCmd(text, destination);
        break;
    case SOURCE_APP:
        emit eventHandlerSendExternalCmd(text);
        break;
    case SOURCE_FIFO: // nobody reads answers there
        break;
    }
}

void eventHandler::eventHandlerAddtoQueue(EVENT_TYPE_t event, SOURCE_TYPE_t source, void *ptr,
                                          uint8_t priority)
{
    queue.append({event, source, ptr, priority});
}

void eventHandler::eventHandlerProcessQueue()
{
    if (queue.isEmpty())
        return;
    const command_t next = queue.first();
    eventHandlerProcess(next.event, next.source, next.data);
    queue.removeFirst();
    qDebug() << "Processed next event";
}

void eventHandler::stopVideo() {}

void eventHandler::eventHandlerSetIPAddress(QString address)
{
    streamAddress = address;
}

void eventHandler::eventHandlerSetPort(QString port)
{
    streamPort = port;
}
