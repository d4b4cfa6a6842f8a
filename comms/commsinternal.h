// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "eventtypes.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <cstdint>

class QSerialPort;
class QTimer;

class commsInternal;

// A row of the command table: a word that the MCU may send, its exact number of arguments and its
// handler. A handler gets all words of the line, the command word at index 0, and returns 0 if it
// accepted the line, 1 if it rejected it.
struct cmd_element_t {
    QString name;
    uint8_t argCount;
    int (commsInternal::*handler)(QStringList words, SOURCE_TYPE_t source);
};

// The serial line to the microcontroller. Splits received bytes into lines, checks each line
// against the command table and emits its event; writes command texts; polls the readings in a
// fixed rotation. A wrong number of arguments, or an argument that is not a number, adds a SCPI
// error number to a queue that the MCU can read and clear; an unknown word adds none. If the port
// cannot be opened, this is logged once and not retried.
class commsInternal : public QObject
{
    Q_OBJECT

public:
    using Handler = decltype(cmd_element_t::handler);

    explicit commsInternal(QObject *parent = nullptr);

    // Appends one entry to the command table; returns 0.
    int commsInternalAddCommand(QString name, Handler handler, unsigned char argCount);

    // Passes one cleaned line to its handler. Returns 0 if a handler was called or the line is a
    // "##" comment, 1 if the word is unknown or the number of arguments is wrong.
    int commsInternalParseCmd(QString line, SOURCE_TYPE_t source);

    // Appends a SCPI error number to the error queue.
    void commsInternalAddtoFifo(int number);

signals:
    // ptr points at a member that holds the value, valid during the call, or is null.
    void commsInternalEvent(EVENT_TYPE_t event, SOURCE_TYPE_t source, void *ptr);

public slots:
    // Handles at most one received line.
    void serialPortProcessData();
    void serialPortProcessDataDebugPort();
    // Sends the next query of the rotation.
    void commsInternalProcessRequest();
    // Opens the port, sends the announcements and starts polling; blocks for two seconds.
    void commsInternalInit();
    // Writes the text verbatim and waits up to a second; ignored unless the source is SOURCE_MCU.
    void commsInternalSendCommand(QString command, SOURCE_TYPE_t eSource);
    // Requests the MCU's log; polling pauses and continues 150 ms later.
    void commsInternalRequestLogs();

private:
    // mcumessages.cpp: the command table and its handlers.
    void addCommands();
    int commsInternalIDN(QStringList words, SOURCE_TYPE_t source);
    int commsInternalUpdateLampVal(QStringList words, SOURCE_TYPE_t source);
    int commsInternalUpdateBatState(QStringList words, SOURCE_TYPE_t source);
    int commsInternalUpdateBatV(QStringList words, SOURCE_TYPE_t source);
    int commsInternalUpdateCurrent(QStringList words, SOURCE_TYPE_t source);
    int commsInternalUpdateCoiler(QStringList words, SOURCE_TYPE_t source);
    int commsInternalShutdown(QStringList words, SOURCE_TYPE_t source);
    int commsInternalUpdateCameraType(QStringList words, SOURCE_TYPE_t source);
    int commsInternalPowerOT(QStringList words, SOURCE_TYPE_t source);
    int commsInternalPowerUT(QStringList words, SOURCE_TYPE_t source);
    int commsInternalFifoClear(QStringList words, SOURCE_TYPE_t source);
    int commsInternalFifoGet(QStringList words, SOURCE_TYPE_t source);
    int commsInternalSondeState(QStringList words, SOURCE_TYPE_t source);
    int commsInternalThermistor(QStringList words, SOURCE_TYPE_t source);
    int commsInternalTallwickDetected(QStringList words, SOURCE_TYPE_t source);
    int commsInternalMCULogs(QStringList words, SOURCE_TYPE_t source);

    bool readNumber(const QString &word, int &number);
    template <EVENT_TYPE_t type, typename Width = Payload<type>>
    int updateNumber(const QStringList &words, SOURCE_TYPE_t source, Payload<type> &member);

    bool writeAll(const QByteArray &bytes);
    void silenceDeadLine();

    QSerialPort *serialPort = nullptr;
    QByteArray rxBuffer; // received bytes: unhandled lines and the incomplete last one
    int rxBegin = 0;     // start of the next line
    int rxSearched = 0;  // there is no line end before this index
    QList<cmd_element_t> commandTable;
    QList<int> errorFifo; // oldest first

    QTimer *requestTimer = nullptr; // null while the port is closed
    QStringList requestList;
    uint8_t requestIndex = 0;

    // The last accepted value of each word; events point here.
    QString mcuVersion;
    uint8_t lampValue = 0;
    int batteryState = 0;
    uint16_t batteryVoltage = 0;
    uint16_t batteryCurrent = 0;
    int16_t coilerValue = 0;
    int cameraType = 0;
    uint8_t sondeState = 0;
    int16_t thermistorValue = 0;
    uint8_t tallwickDetected = 0;
    QString mcuLogs;
};
