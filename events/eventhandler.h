// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "bands.h"
#include "eventtypes.h"
#include "inifile.h"
#include "keys.h"

#include <QList>
#include <QObject>
#include <QString>

#include <cstdint>

class settings;

// One record of the event queue.
struct command_t {
    EVENT_TYPE_t event;
    SOURCE_TYPE_t source;
    void *data;       // payload pointer; the payload is not copied
    uint8_t priority; // not used
};

// Handles every event of the unit. An event (type, source, pointer to a value that the emitter
// holds) is handled completely before eventHandlerProcess returns: it updates state and store,
// sends commands to the MCU and the answer to the event's source, and runs unit scripts and waits
// for them. Owns the status store, the monitor, the ADC reader, the configuration file and the
// commands-file watcher.
//
// Source files: eventhandler.cpp (construction, snapshot, dispatch, routing, queue), telemetry.cpp
// (values that the MCU reports), lamp.cpp, control.cpp (all other commands and requests),
// commandsfile.cpp, configuration.cpp.
class eventHandler : public QObject
{
    Q_OBJECT

public:
    explicit eventHandler(QObject *parent = nullptr);

    // Sends a command or an answer: SOURCE_MCU and SOURCE_DEBUG to the MCU link, SOURCE_APP to
    // the phone link; other sources are ignored. The text includes its line end.
    void eventHandlerSendCommand(SOURCE_TYPE_t destination, QString text);

    // Check a held reading against its band. A warning is logged only when the state changes.
    void eventHandlerParseBatteryVoltage(); // stores it first
    void eventHandlerParseBatteryCurrent(); // stores it first
    void eventHandlerParseComputeTemperature();

    // One lamp step up or down, limited to 0 and the lamp maximum.
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
    // Handles one event. ptr points at a value of the event's payload type, valid only during the
    // call, or is null. Events without a handler are ignored.
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

    // One function per event, with the event's source and, if the event has a payload, a pointer
    // to it.
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
    static void checkBand(int reading, const bands::Band &band, Alarm &alarm);

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
    IniFile configuration;

    uint16_t batteryVoltage = 0; // millivolts: raw reading times 3.13
    uint16_t batteryCurrent = 0; // milliamperes
    int32_t batteryState = 0;
    int16_t coilerCount = 0;
    double coilerOffset = 0;   // metres
    double coilerDistance = 0; // metres
    double encoderScalar = 0;  // metres per count
    uint8_t lampLevel = 0;     // percent of full scale
    uint8_t lampMaximum = 0;   // percent of full scale
    int32_t cameraType = 0;
    QString mcuVersion = "VX.Y.Z";
    QString streamPort = "8001";
    QString streamAddress = "192.167.0.0";
    uint8_t sondeEnabled = 0;
    int16_t computeTemperature = 0; // hundredths of a degree Celsius
    uint8_t tallwickDetected = 0;   // nonzero locks the lamp
    uint16_t unknownCommands = 0;
    QString mcuLog = "0";
    QString coilerModel;
    QString sondeFrequency = keys::sondeFrequency.absent;
    Alarm voltageAlarm = Alarm::Normal;
    Alarm currentAlarm = Alarm::Normal;
    Alarm temperatureAlarm = Alarm::Normal;
    bool streamActive = false;
};
