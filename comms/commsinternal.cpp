// SPDX-License-Identifier: LicenseRef-KT6120
#include "commsinternal.h"

#include "logmessages.h"
#include "paths.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QSerialPort>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <poll.h>

using namespace std::chrono_literals;

namespace
{

constexpr qint32 baudRate = 115200;
constexpr auto announcementPause = 400ms;
constexpr auto writeWait = 1000ms;
constexpr auto requestInterval = 150ms;

// SCPI error numbers.
constexpr int parameterNotAllowed = -108;
constexpr int missingParameter = -109;

const char logQuery[] = "LOGS?\n\r";

const char *const announcements[] = {"BOOT:READY\n\r", "UPGRADE:STATE 0\r\n", "SONDE:OFF\r\n",
                                     "*IDN?\n\r", logQuery};

// The reel counter takes every second place, because it is the only value that changes quickly.
const char *const requests[] = {
    "BAT:V?\n\r", "COILER:VALUE?\n\r", "BAT:STATE?\n\r", "COILER:VALUE?\n\r",
    "PWR:I?\n\r", "COILER:VALUE?\n\r", "SONDE:EN?\n\r",  "COILER:VALUE?\n\r",
    "TWK?\n\r",   "COILER:VALUE?\n\r", "TEMP?\n\r",      "COILER:VALUE?\n\r",
    "*IDN?\n\r",  "COILER:VALUE?\n\r",
};

} // namespace

commsInternal::commsInternal(QObject *parent) : QObject(parent) {}

void commsInternal::commsInternalInit()
{
    qDebug() << "External Comms Thread ID: " << QThread::currentThreadId();

    serialPort = new QSerialPort(paths::mcuSerialDevice, this);
    serialPort->setBaudRate(baudRate);
    if (!serialPort->open(QIODevice::ReadWrite)) {
        qCritical() << messages::portNotOpened;
        return;
    }
    addCommands();

    // QSerialPort reserves 32 KiB for each pending read, so take the bytes out at once.
    connect(serialPort, &QSerialPort::readyRead, this,
            [this] { rxBuffer.append(serialPort->read(serialPort->bytesAvailable())); });
    // QSerialPort also emits readyRead inside waitForBytesWritten. With a queued connection, the
    // slot runs after the sending handler has returned, so that a line's effects, including the
    // commands it sends, are complete before the next line is read.
    connect(serialPort, &QSerialPort::readyRead, this, &commsInternal::serialPortProcessData,
            Qt::QueuedConnection);
    connect(serialPort, &QSerialPort::errorOccurred, this, &commsInternal::silenceDeadLine);

    for (const char *text : announcements) {
        commsInternalSendCommand(text, SOURCE_MCU);
        QThread::msleep(announcementPause.count());
    }

    requestTimer = new QTimer(this);
    requestTimer->setTimerType(Qt::PreciseTimer);
    for (const char *query : requests)
        requestList.append(query);
    connect(requestTimer, &QTimer::timeout, this, &commsInternal::commsInternalProcessRequest);
    requestTimer->start(requestInterval);
}

void commsInternal::serialPortProcessData()
{
    const int end = rxBuffer.indexOf('\n', rxSearched);
    rxSearched = end < 0 ? rxBuffer.size() : end + 1;
    if (end < 0)
        return;
    // The text ends at the first NUL byte.
    const char *text = rxBuffer.constData() + rxBegin;
    QString line = QString::fromUtf8(text, int(qstrnlen(text, uint(end - rxBegin))));
    rxBegin = rxSearched;
    // Remove handled lines only when they are half of the buffer: removing each would move a long
    // backlog every time.
    if (rxBegin >= rxBuffer.size() / 2) {
        rxBuffer = rxBuffer.mid(rxBegin);
        rxBegin = rxSearched = 0;
    }
    line.remove('\t').remove('\r');
    commsInternalParseCmd(line, SOURCE_MCU);
}

void commsInternal::serialPortProcessDataDebugPort() {}

int commsInternal::commsInternalAddCommand(QString name, Handler handler, unsigned char argCount)
{
    commandTable.append({name, argCount, handler});
    return 0;
}

int commsInternal::commsInternalParseCmd(QString line, SOURCE_TYPE_t source)
{
    const QStringList words = line.split(' ');
    const QString &word = words.first();
    if (word.startsWith("##"))
        return 0;
    const auto entry =
        std::find_if(commandTable.cbegin(), commandTable.cend(),
                     [&word](const cmd_element_t &element) { return element.name == word; });
    if (entry == commandTable.cend())
        return 1;
    if (entry->argCount + 1 < words.size()) {
        commsInternalAddtoFifo(parameterNotAllowed);
        return 1;
    }
    if (words.size() <= entry->argCount) {
        commsInternalAddtoFifo(missingParameter);
        return 1;
    }
    (this->*entry->handler)(words, source);
    return 0;
}

void commsInternal::commsInternalAddtoFifo(int number)
{
    errorFifo.append(number);
}

void commsInternal::commsInternalSendCommand(QString command, SOURCE_TYPE_t eSource)
{
    if (eSource == SOURCE_MCU && !writeAll(command.toUtf8()))
        qCritical() << messages::writeFailed << command;
}

// True if all bytes were written within the timeout.
bool commsInternal::writeAll(const QByteArray &bytes)
{
    if (!serialPort || !serialPort->isOpen())
        return false;
    QElapsedTimer waited;
    waited.start();
    bool going = serialPort->write(bytes) == bytes.size();
    while (going && serialPort->bytesToWrite() > 0) {
        const auto left = writeWait.count() - waited.elapsed();
        going = left > 0 && serialPort->waitForBytesWritten(int(left));
    }
    if (!going)
        serialPort->clear(QSerialPort::Output); // a failed command must not be sent later
    return going;
}

// The file descriptor of a vanished line is always readable, so its enabled notifier would use a
// whole core. The port stays open; writes still fail and are logged.
void commsInternal::silenceDeadLine()
{
    pollfd line{serialPort->handle(), 0, 0};
    if (poll(&line, 1, 0) == 0 || (line.revents & (POLLHUP | POLLERR)) == 0)
        return;
    for (QSocketNotifier *notifier : serialPort->findChildren<QSocketNotifier *>())
        notifier->setEnabled(false);
}

void commsInternal::commsInternalProcessRequest()
{
    commsInternalSendCommand(requestList.at(requestIndex), SOURCE_MCU);
    ++requestIndex;
    if (requestIndex >= requestList.size())
        requestIndex = 0;
}

void commsInternal::commsInternalRequestLogs()
{
    commsInternalSendCommand(logQuery, SOURCE_MCU);
    if (requestTimer)
        requestTimer->start(); // anew
}
