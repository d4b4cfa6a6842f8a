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

// One word that the MCU may send: its exact spelling, the number of arguments that must follow
// and the handler. A handler gets the whole line's words, the command word at index 0, and
// returns 0 when it took the line, 1 when it rejected it.
struct cmd_element_t {
    QString name;
    uint8_t argCount;
    int (commsInternal::*handler)(QStringList words, SOURCE_TYPE_t source);
};

// The serial line to the microcontroller. Gathers bytes into lines, checks each line against
// the command table and turns it into an event; writes command texts; asks for the readings
// in a fixed rotation. Rejected lines leave SCPI error numbers in a queue that the MCU can
// read and clear. A line that cannot be opened is logged once and stays down.
class commsInternal : public QObject
{
    Q_OBJECT

public:
    using Handler = int (commsInternal::*)(QStringList words, SOURCE_TYPE_t source);

    explicit commsInternal(QObject *parent = nullptr);

    // Appends one entry to the command table; returns 0.
    int commsInternalAddCommand(QString name, Handler handler, unsigned char argCount);

    // Hands one cleaned line to its handler. 0 when it was handed over or is a "##" comment,
    // 1 when its word is unknown or the number of arguments is wrong.
    int commsInternalParseCmd(QString line, SOURCE_TYPE_t source);

    // Appends a SCPI error number to the error queue.
    void commsInternalAddtoFifo(int number);

signals:
    // ptr points at a member that holds the value, or is null; read it during the call.
    void commsInternalEvent(EVENT_TYPE_t event, SOURCE_TYPE_t source, void *ptr);

public slots:
    // Handles at most one line of what has arrived.
    void serialPortProcessData();
    void serialPortProcessDataDebugPort();
    // Sends the next query of the rotation.
    void commsInternalProcessRequest();
    // Opens the line, announces the unit and starts the rotation; blocks for two seconds.
    void commsInternalInit();
    // Writes the text as it stands to the line, waiting up to a second; only for SOURCE_MCU.
    void commsInternalSendCommand(QString command, SOURCE_TYPE_t eSource);
    // Asks for the MCU's log out of turn; the rotation goes on 150 ms later.
    void commsInternalRequestLogs();

private:
    // mcumessages.cpp: the table and what each word does.
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
    QByteArray rxBuffer; // what has arrived: lines not yet handled and the one being gathered
    int rxBegin = 0;     // of the next line
    int rxSearched = 0;  // no line ends before this
    QList<cmd_element_t> commandTable;
    QList<int> errorFifo; // oldest first

    QTimer *requestTimer = nullptr; // none while the line is down
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
