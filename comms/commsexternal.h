// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "eventtypes.h"

#include <QAbstractSocket>
#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>

class QProcess;
class QTcpSocket;
class QTimer;

// How the phone is connected, by the unit's network interfaces.
enum MOBILE_TYPE_t {
    MOBILE_NONE = 0,     // neither usb0 nor eth0
    MOBILE_USB = 1,      // usb0: the phone shares its connection over USB
    MOBILE_ETHERNET = 2, // eth0 and no usb0
};

// The link to the phone app. Checks once a second whether the unit is on a phone's network, and
// switches between the local PAL output and the stream to the phone. While the stream runs, keeps a
// TCP connection to the app, which listens on the unit's default gateway. Emits commsExternalEvent
// for the lines of the app; commsExternalSendCmd sends the answers.
//
// A failed connection attempt is printed as debug text, not logged, and retried at the next tick; a
// program that fails is not reported. Waiting for a program or for the connection blocks the event
// loop.
class commsExternal : public QObject
{
    Q_OBJECT

public:
    explicit commsExternal(QObject *parent = nullptr);

    // Executes one line of the app, split into words: the command and its argument, if any.
    // Restarts the keep-alive.
    void commsExternalParse(QStringList tokens);

    // Switch from the PAL output to the stream and back; complete 100 ms later.
    void commsExternalStartStream();
    void commsExternalStopStream();

    // Shows or removes the splash image. True if the started program has exited within a second;
    // the viewer never does, because it shows the image until it is killed.
    bool setStreamSplashScreenState(bool shown);

    // Empty unless exactly one network interface has a broadcast address.
    QString getBroadcastAddress();
    // One of MOBILE_TYPE_t.
    int getMobileType();
    // The default gateway as dotted IPv4; empty without one.
    QString getGatewayAddress();

signals:
    // ptr points at a member, valid only during the call, or is null.
    void commsExternalEvent(EVENT_TYPE_t event, SOURCE_TYPE_t source, void *ptr);
    // Connected at start-up, but never emitted: the stream is started through its script.
    void commsExternalSetPort(QString port);
    void commsExternalSetIP(QString ip);
    void commsExternalStartStream(QString ip, QString port);

public slots:
    // The tick: checks the network, then the connection.
    void commsExternalAttemptConnect();
    // Starts the ticks.
    void commsExternalInit();
    // Sends the bytes unchanged and at once; does nothing without a connection. Drops the
    // connection if the peer has left more than a megabyte unread.
    void commsExternalSendCmdByteArray(QByteArray bytes);
    void commsExternalSendCmd(QString text);
    void commsExternalReadyRead();
    void commsExternalTCPConnect();
    void commsExternalKeepAliveTimeout();
    void commsExternaldelayedStop();
    void commsExternaldelayedStart();
    // Sends a pulse on the GPIO line that boots the USB hardware.
    void commsExternalBootUSB();
    void commsExternalMonitorTethering();
    void commsExternalNullParams();

private:
    struct AppCommand; // appcommands.cpp

    QTcpSocket *tcpSocket;
    double coilerSetValue = 0;
    QString appPort;
    QString appAddress;
    QString coilerModel;
    QString sondeFrequency;
    QTimer *keepAliveTimer = nullptr; // from commsExternalInit on
    bool tetheringState = false;
    bool streamStarted = false;
    QProcess *streamProcess = nullptr;
    QAbstractSocket::SocketState socketState =
        QAbstractSocket::UnconnectedState; // at the last tick
    QString streamAddress;
    QString broadcastAddress;
    QString streamPort;
    int mobileType = MOBILE_NONE;
};
