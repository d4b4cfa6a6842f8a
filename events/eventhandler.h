// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "eventtypes.h"

#include <QList>
#include <QObject>
#include <QString>

#include <cstdint>
#include <memory>

class IniFile;
class QFileSystemWatcher;
class settings;

// One record of the event queue.
struct command_t {
    EVENT_TYPE_t event;
    SOURCE_TYPE_t source;
    void *data;       // the payload pointer as given; what it points at is not copied
    uint8_t priority; // stored, not consulted
};

// The one place where the unit decides what to do. An event (type, source, pointer to a value
// that the emitter holds) is acted on completely before eventHandlerProcess returns: state is
// kept and stored, commands go to the MCU, an answer goes back where the request came from,
// unit scripts are run and waited for. Owns the status store, the monitor, the ADC reader, the
// configuration file and the commands-file watcher.
//
// One source file a duty: eventhandler.cpp construction, snapshot, dispatch, routing, queue;
// telemetry.cpp what the MCU reports; lamp.cpp; control.cpp everything else that is asked for;
// commandsfile.cpp; configuration.cpp.
class eventHandler : public QObject
{
    Q_OBJECT

public:
    explicit eventHandler(QObject *parent = nullptr);
    ~eventHandler() override;

    // Sends a command or an answer: SOURCE_MCU and SOURCE_DEBUG to the MCU link, SOURCE_APP to
    // the phone link, anything else nowhere. The text carries its own line end.
    void eventHandlerSendCommand(SOURCE_TYPE_t destination, QString text);

    // Check a held reading against its band; a warning is logged on entering a state only.
    void eventHandlerParseBatteryVoltage(); // stores it first
    void eventHandlerParseBatteryCurrent(); // stores it first
    void eventHandlerParseComputeTemperature();

    // One lamp step up or down, within 0 and the lamp maximum.
    void eventHandlerUpdateLamp(bool up);
    // Replaces the MCU log file by the held log text.
    void eventHandlerWriteLogs();
    // Starts watching the commands file.
    void eventHandlerSetupFifo();
    // Writes a snapshot of the held state to KT6120.ini in the working directory.
    void eventHandlerParseSettingsFile();

signals:
    void eventHandlerSendInternalCmd(QString text, SOURCE_TYPE_t destination);
    void eventHandlerSendExternalCmd(QString text);
    void eventHandlerUpdateLogs();
    void eventHandlerStartStreaming(QString ip, QString port);
    void eventHandlerStopStreaming();
    void eventHandlerStartPAL();
    void eventHandlerStopPAL();
    void eventHandlerNullParams();

public slots:
    // Acts on one event. ptr points at the payload of the event's type, valid during the call
    // only, or is null; values without a handler are ignored.
    void eventHandlerProcess(EVENT_TYPE_t event, SOURCE_TYPE_t source, void *ptr);
    // Dispatches and removes the oldest record of the queue.
    void eventHandlerProcessQueue();
    void eventHandlerAddtoQueue(EVENT_TYPE_t event, SOURCE_TYPE_t source, void *ptr,
                                uint8_t priority);
    void stopVideo(); // does nothing
    void eventHandlerFIFOChanged(QString path);
    void eventHandlerParseFIFO(QString line);
    void eventHandlerSetIPAddress(QString address);
    void eventHandlerSetPort(QString port);

private:
    struct Dispatch;
    enum class Alarm { Normal = 0, Under = 1, Over = 2 };
    struct Band;

    // One function an event. It gets the event's source, and the pointer to the value where one
    // goes with the event.
    //
    // telemetry.cpp
    void batteryStateReported(SOURCE_TYPE_t source, const int32_t *state);
    void batteryVoltageReported(SOURCE_TYPE_t source, const uint16_t *raw);
    void currentReported(SOURCE_TYPE_t source, const uint16_t *current);
    void cameraTypeReported(SOURCE_TYPE_t source, const int32_t *type);
    void coilerValueReported(SOURCE_TYPE_t source, const int16_t *count);
    void mcuVersionReported(SOURCE_TYPE_t source, const QString *version);
    void thermistorReported(SOURCE_TYPE_t source, const int16_t *hundredths);
    void tallwickReported(SOURCE_TYPE_t source, const uint8_t *flag);
    static void checkBand(int reading, const Band &band, Alarm &alarm);

    // lamp.cpp
    void lampValueReported(SOURCE_TYPE_t source, const uint8_t *level);
    void answerLampValue(SOURCE_TYPE_t source);
    void lampUp(SOURCE_TYPE_t source);
    void lampDown(SOURCE_TYPE_t source);
    void lampOff(SOURCE_TYPE_t source);
    void switchLampPower(const char *lineValue);
    void storeLampLevel();

    // control.cpp
    void answerBatteryState(SOURCE_TYPE_t source);
    void answerBatteryLevel(SOURCE_TYPE_t source);
    void sondeOn(SOURCE_TYPE_t source);
    void sondeOff(SOURCE_TYPE_t source);
    void switchSonde(bool on);
    void sondeFrequencyGiven(SOURCE_TYPE_t source, const QString *frequency);
    void answerSondeFrequency(SOURCE_TYPE_t source);
    void answerSondeState(SOURCE_TYPE_t source);
    void shutDown(SOURCE_TYPE_t source);
    void answerCoilerValue(SOURCE_TYPE_t source);
    void setCoiler(SOURCE_TYPE_t source, const double *metres);
    void coilerModelGiven(SOURCE_TYPE_t source, const QString *model);
    void answerCoilerModel(SOURCE_TYPE_t source);
    void startStream(SOURCE_TYPE_t source);
    void stopStream(SOURCE_TYPE_t source);
    void startPal(SOURCE_TYPE_t source);
    void stopPal(SOURCE_TYPE_t source);
    void answerIdn(SOURCE_TYPE_t source);
    void answerComputeTemperature(SOURCE_TYPE_t source);
    void answerTallwick(SOURCE_TYPE_t source);
    void mcuLogGiven(SOURCE_TYPE_t source, const QString *text);
    void resetMcuLog(SOURCE_TYPE_t source);
    void countUnknownCommand(SOURCE_TYPE_t source);

    // configuration.cpp
    void readConfiguration();

    QList<command_t> queue;
    settings *store;
    std::unique_ptr<IniFile> configuration;
    QFileSystemWatcher *commandsFileWatcher = nullptr;

    uint16_t batteryVoltage = 0; // raw reading times 3.13
    uint16_t batteryCurrent = 0;
    int32_t batteryState = 0;
    int16_t coilerCount = 0;
    double coilerOffset = 0;   // metres
    double coilerDistance = 0; // metres
    double encoderScalar = 0;  // metres a count
    uint8_t lampLevel = 0;     // percent of full scale
    uint8_t lampMaximum = 0;   // percent of full scale
    int32_t cameraType = 0;
    QString mcuVersion = "VX.Y.Z";
    QString streamPort = "8001";
    QString streamAddress = "192.167.0.0";
    uint8_t sondeEnabled = 0;
    int16_t computeTemperature = 0; // hundredths of a degree Celsius
    uint8_t tallwickDetected = 0;   // while nonzero, the lamp stays as it is
    uint16_t unknownCommands = 0;
    QString mcuLog = "0";
    QString coilerModel;
    QString sondeFrequency = "512";
    Alarm voltageAlarm = Alarm::Normal;
    Alarm currentAlarm = Alarm::Normal;
    Alarm temperatureAlarm = Alarm::Normal;
    bool streamActive = false;
};
