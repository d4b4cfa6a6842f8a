// SPDX-License-Identifier: LicenseRef-KT6120
#include "commsexternal.h"

#include "childprocess.h"
#include "gpio.h"
#include "logmessages.h"
#include "network.h"
#include "paths.h"
#include "ports.h"

#include <QDebug>
#include <QFile>
#include <QNetworkProxy>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

#include <chrono>

using namespace std::chrono_literals;

namespace
{

constexpr auto tickInterval = 1000ms;
constexpr auto keepAlive = 10000ms; // the app's longest silence
constexpr auto switchDelay = 100ms; // time for the PAL output to stop before the stream starts

constexpr auto shellWait = 30000ms;
constexpr auto splashWait = 1000ms;
constexpr auto gpioWait = 1000ms;
constexpr auto connectWait = 5000ms;

// Bytes of one read. The rest waits in the kernel, so an app that sends queries without pause keeps
// the other inputs waiting for two seconds at most, and no text that it sets is longer. Lines that
// run a script take as long as their scripts.
constexpr qint64 readLimit = 32'768;

// Unsent answers beyond which the connection is dropped: the phone does not read them.
constexpr qint64 unsentLimit = 1'048'576; // bytes

constexpr int connectAttempts = 2;
constexpr quint16 appTcpPort = 8082;
constexpr char greeting[] = "Connected To Kestra\r\n";

QByteArray shellOutput(QObject *parent, const QString &line)
{
    return childprocess::output(parent, {"sh", {"-c", line}}, shellWait);
}

} // namespace

commsExternal::commsExternal(QObject *parent) : QObject(parent), tcpSocket(new QTcpSocket(this))
{
    // The phone is the next hop: ignore a proxy of the environment.
    tcpSocket->setProxy(QNetworkProxy::NoProxy);
    tcpSocket->setReadBufferSize(readLimit);
}

void commsExternal::commsExternalInit()
{
    qDebug() << "External Comms Thread ID: " << QThread::currentThreadId();

    auto *connectTimer = new QTimer(this);
    connect(connectTimer, &QTimer::timeout, this, &commsExternal::commsExternalAttemptConnect);
    // A tick may wait ten seconds for the app. Without a new start, the timer would fire again at
    // once, and the event loop would handle one event of each source between two ticks.
    connect(connectTimer, &QTimer::timeout, this, [connectTimer] {
        if (connectTimer->remainingTime() == 0)
            connectTimer->start();
    });
    connectTimer->start(tickInterval);

    keepAliveTimer = new QTimer(this);
    keepAliveTimer->setTimerType(Qt::PreciseTimer); // a coarse one may be half a second early
    keepAliveTimer->setInterval(keepAlive);
    connect(keepAliveTimer, &QTimer::timeout, this, &commsExternal::commsExternalKeepAliveTimeout);
}

// The connection. It is closed by abort(): close() waits until all bytes are sent, for many minutes
// if the peer does not read, and the socket cannot reconnect before that.

void commsExternal::commsExternalAttemptConnect()
{
    commsExternalMonitorTethering();
    if (socketState != QAbstractSocket::ConnectedState) {
        commsExternalTCPConnect();
    } else if (tcpSocket->state() != QAbstractSocket::ConnectedState) {
        qInfo() << messages::appClosed;
        tcpSocket->abort();
        keepAliveTimer->stop();
    }
    socketState = tcpSocket->state();
}

void commsExternal::commsExternalTCPConnect()
{
    if (!streamStarted)
        return;
    connect(tcpSocket, &QTcpSocket::readyRead, this, &commsExternal::commsExternalReadyRead,
            Qt::UniqueConnection);

    const QString gateway = getGatewayAddress();
    if (!network::isIPv4(gateway))
        return;
    for (int attempt = 0; attempt < connectAttempts; ++attempt) {
        appAddress = gateway;
        tcpSocket->connectToHost(gateway, appTcpPort, QIODevice::ReadWrite,
                                 QAbstractSocket::AnyIPProtocol);
        if (tcpSocket->waitForConnected(int(connectWait.count()))) {
            // Answers are flushed one by one. With Nagle's algorithm, the second of two would wait
            // 40 ms for the peer's delayed acknowledgement of the first.
            tcpSocket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
            commsExternalSendCmdByteArray(greeting);
            keepAliveTimer->start();
            return;
        }
        qDebug() << "Error: " << tcpSocket->error();
        tcpSocket->abort();
    }
}

// A vanished peer does not close the connection; only its silence shows. A script may block the
// event loop for as long as the app may be silent, and the timer may be handled before the socket:
// so lines that have arrived are read first.
void commsExternal::commsExternalKeepAliveTimeout()
{
    keepAliveTimer->stop();
    tcpSocket->waitForReadyRead(0);
    if (keepAliveTimer->isActive()) // a line has restarted it
        return;
    qWarning() << messages::appSilent;
    tcpSocket->abort();
    socketState = QAbstractSocket::UnconnectedState;
}

void commsExternal::commsExternalSendCmd(QString text)
{
    commsExternalSendCmdByteArray(text.toUtf8());
}

void commsExternal::commsExternalSendCmdByteArray(QByteArray bytes)
{
    if (tcpSocket->state() != QAbstractSocket::ConnectedState)
        return;
    if (tcpSocket->bytesToWrite() > unsentLimit) {
        qWarning() << messages::appNotReading;
        tcpSocket->abort(); // the tick after the next one reconnects
        return;
    }
    tcpSocket->write(bytes);
    // An acknowledgement must not wait for the following event, which may take seconds.
    tcpSocket->flush();
}

// The network

QString commsExternal::getBroadcastAddress()
{
    return network::broadcastAddress(shellOutput(this, "ifconfig | grep broadcast"));
}

int commsExternal::getMobileType()
{
    if (!shellOutput(this, "ifconfig | grep usb0").isEmpty())
        return MOBILE_USB;
    if (!shellOutput(this, "ifconfig | grep eth0").isEmpty())
        return MOBILE_ETHERNET;
    return MOBILE_NONE;
}

QString commsExternal::getGatewayAddress()
{
    QFile table(paths::routeTable);
    if (!table.open(QIODevice::ReadOnly)) {
        qDebug() << "Couldn't read routing information";
        return {};
    }
    return network::defaultGateway(table.readAll());
}

void commsExternal::commsExternalMonitorTethering()
{
    const QString address = getBroadcastAddress();
    mobileType = getMobileType();
    const bool found = !address.isEmpty();
    if (found)
        broadcastAddress = address;
    else
        streamStarted = false; // also where the delayed start came after the loss
    if (found == tetheringState)
        return;

    qInfo() << messages::tetheringChanged << found;
    tetheringState = found;
    if (found) {
        streamAddress = broadcastAddress;
        streamPort = mobileType == MOBILE_ETHERNET ? ports::ethernetStream : ports::usbStream;
        commsExternalStartStream();
    } else {
        qInfo() << messages::streamStopping;
        commsExternalStopStream();
    }
}

void commsExternal::commsExternalBootUSB()
{
    for (const char *level : {"1", "0"})
        childprocess::run(this, {paths::gpioWriteScript, {gpio::usbBoot, level}}, gpioWait);
}

// The stream switch

void commsExternal::commsExternalStartStream()
{
    qInfo() << messages::streamStarting << streamAddress << " and port " << streamPort;
    emit commsExternalEvent(EVENT_PALStop, SOURCE_APP, nullptr);
    setStreamSplashScreenState(true);
    QTimer::singleShot(switchDelay, this, &commsExternal::commsExternaldelayedStart);
}

void commsExternal::commsExternaldelayedStart()
{
    const QString line = QString(paths::streamStartCommand).arg(streamAddress, streamPort);
    streamProcess = childprocess::start(this, childprocess::fromLine(line));
    streamStarted = true;
}

void commsExternal::commsExternalStopStream()
{
    childprocess::start(this, childprocess::fromLine(paths::streamStopCommand));
    QTimer::singleShot(switchDelay, this, &commsExternal::commsExternaldelayedStop);
}

void commsExternal::commsExternaldelayedStop()
{
    emit commsExternalEvent(EVENT_PALStart, SOURCE_APP, nullptr);
    setStreamSplashScreenState(false);
}

bool commsExternal::setStreamSplashScreenState(bool shown)
{
    const childprocess::Command viewer{
        paths::splashViewer, {"-d", "3", "-l", "9", "-b", "0x000F", paths::splashImage, "-n"}};
    const childprocess::Command killViewer{"killall", {"pngview"}};
    return childprocess::run(this, shown ? viewer : killViewer, splashWait);
}

void commsExternal::commsExternalNullParams()
{
    qInfo() << messages::streamNowhere;
}
