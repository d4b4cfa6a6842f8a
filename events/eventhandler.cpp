// SPDX-License-Identifier: LicenseRef-KT6120
#include "eventhandler.h"

#include "busybee.h"
#include "keys.h"
#include "monitor.h"
#include "paths.h"
#include "settings.h"

#include <QDebug>

#include <iterator>
#include <type_traits>

eventHandler::eventHandler(QObject *parent)
    : QObject(parent), store(new settings(this)), configuration(paths::configuration)
{
    new monitor(this, store);
    new BusyBee(this, store);
    unknownCommands = static_cast<uint16_t>(store->settingsGetValue(keys::unknownCommands).toInt());
    readConfiguration();
    eventHandlerSetupFifo();
}

void eventHandler::eventHandlerParseSettingsFile()
{
    IniFile snapshot("KT6120.ini");
    snapshot.setValue(keys::batteryVoltage, batteryVoltage);
    snapshot.setValue(keys::batteryCurrent, batteryCurrent);
    snapshot.setValue(keys::batteryState, batteryState);
    snapshot.setValue(keys::coilerCount, int(coilerCount));
    snapshot.setValue(keys::lampLevel, int(lampLevel));
    snapshot.setValue(keys::cameraType, cameraType);
    snapshot.setValue(keys::streamAddress, streamAddress);
    snapshot.setValue(keys::streamPort, streamPort);
    snapshot.setValue(keys::mcuVersion, mcuVersion);
    snapshot.setValue(keys::unknownCommands, unknownCommands);
    snapshot.setValue(keys::sondeState, int(sondeEnabled));
}

// The handler of each event, in the order of UNIT_EVENTS. A row compiles only if the function takes
// a pointer to the event's payload type, or no pointer if the event has no payload.
struct eventHandler::Dispatch {
    using self = eventHandler;

    struct Row {
        EVENT_TYPE_t event;
        void (*act)(self &handler, SOURCE_TYPE_t source, const void *payload);
    };

    template <EVENT_TYPE_t event, auto function>
    static constexpr Row on()
    {
        return {event, [](self &handler, SOURCE_TYPE_t source, const void *payload) {
                    if constexpr (std::is_void_v<Payload<event>>)
                        (handler.*function)(source);
                    else
                        (handler.*function)(source, static_cast<const Payload<event> *>(payload));
                }};
    }
    template <EVENT_TYPE_t event>
    static constexpr Row ignore()
    {
        return {event, [](self &, SOURCE_TYPE_t, const void *) {}};
    }

    static const Row rows[];
    static constexpr bool hasOneRowForEachEvent();
};

constexpr eventHandler::Dispatch::Row eventHandler::Dispatch::rows[] = {
    on<EVENT_BatteryState, &self::batteryStateReported>(),
    on<EVENT_BatteryStateRequest, &self::answerBatteryState>(),
    on<EVENT_BatteryVoltage, &self::batteryVoltageReported>(),
    on<EVENT_BatteryLevelRequest, &self::answerBatteryLevel>(),
    on<EVENT_SondeOn, &self::sondeOn>(),
    on<EVENT_SondeOff, &self::sondeOff>(),
    on<EVENT_SondeFrequency, &self::sondeFrequencyGiven>(),
    on<EVENT_SondeFrequencyRequest, &self::answerSondeFrequency>(),
    on<EVENT_SondeStateRequest, &self::answerSondeState>(),
    on<EVENT_Current, &self::currentReported>(),
    on<EVENT_LampValueRequest, &self::answerLampValue>(),
    on<EVENT_LampValue, &self::lampValueReported>(),
    on<EVENT_LampUp, &self::lampUp>(),
    on<EVENT_LampDown, &self::lampDown>(),
    on<EVENT_LampOff, &self::lampOff>(),
    on<EVENT_Shutdown, &self::shutDown>(),
    on<EVENT_CameraType, &self::cameraTypeReported>(),
    on<EVENT_CoilerValue, &self::coilerValueReported>(),
    on<EVENT_CoilerValueRequest, &self::answerCoilerValue>(),
    on<EVENT_CoilerSet, &self::setCoiler>(),
    ignore<EVENT_EncoderValue>(),
    on<EVENT_McuVersion, &self::mcuVersionReported>(),
    on<EVENT_StreamStart, &self::startStream>(),
    on<EVENT_StreamStop, &self::stopStream>(),
    on<EVENT_PALStart, &self::startPal>(),
    on<EVENT_PALStop, &self::stopPal>(),
    on<EVENT_IdnRequest, &self::answerIdn>(),
    on<EVENT_Thermistor, &self::thermistorReported>(),
    on<EVENT_ComputeTemperatureRequest, &self::answerComputeTemperature>(),
    on<EVENT_TallwickDetected, &self::tallwickReported>(),
    on<EVENT_TallwickDetectRequest, &self::answerTallwick>(),
    on<EVENT_CoilerModel, &self::coilerModelGiven>(),
    on<EVENT_CoilerModelRequest, &self::answerCoilerModel>(),
    on<EVENT_WriteLogs, &self::mcuLogGiven>(),
    on<EVENT_ResetLogs, &self::resetMcuLog>(),
    on<EVENT_UnknownCommand, &self::countUnknownCommand>(),
};

constexpr bool eventHandler::Dispatch::hasOneRowForEachEvent()
{
    for (std::size_t i = 0; i < std::size(allEvents); ++i) {
        if (rows[i].event != allEvents[i])
            return false;
    }
    return std::size(rows) == std::size(allEvents);
}

void eventHandler::eventHandlerProcess(EVENT_TYPE_t event, SOURCE_TYPE_t source, void *ptr)
{
    static_assert(Dispatch::hasOneRowForEachEvent());
    for (const Dispatch::Row &row : Dispatch::rows) {
        if (row.event == event)
            return row.act(*this, source, ptr);
    }
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
