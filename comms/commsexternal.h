// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "eventtypes.h"

#include <QAbstractSocket>
#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>

#include <vector>

class QProcess;
class QTcpSocket;
class QTimer;

// How the phone is attached, told from the unit's network interfaces.
enum MOBILE_TYPE_t {
    MOBILE_NONE = 0,     // neither usb0 nor eth0 is there
    MOBILE_USB = 1,      // usb0: the phone shares its connection over USB
    MOBILE_ETHERNET = 2, // eth0 and no usb0
};

// The link to the phone app. Once a second it looks whether the unit has come onto a phone's
// network or has left it, and switches between the local PAL output and the stream to the
// phone; while the stream runs it keeps a TCP connection to the app, which listens on the
// unit's default gateway. Lines from the app become commsExternalEvent; answers come back
// through commsExternalSendCmd.
//
// Failures are logged and tried again at the next tick. Steps that wait for a program or for
// the connection block the event loop meanwhile.
class commsExternal : public QObject
{
    Q_OBJECT

public:
    explicit commsExternal(QObject *parent = nullptr);

    // Acts on one line of the app, split into its words: the command and, where there are
    // more, its argument. Restarts the keep-alive.
    void commsExternalParse(QStringList tokens);

    // The switch from the PAL output to the stream and back; each is completed 100 ms later.
    void commsExternalStartStream();
    void commsExternalStopStream();

    // Shows or removes the splash image. True if the program that does it has ended in time:
    // the viewer does not, it shows the image until it is removed.
    bool setStreamSplashScreenState(bool shown);

    // Empty unless exactly one network interface has a broadcast address.
    QString getBroadcastAddress();
    // One of MOBILE_TYPE_t.
    int getMobileType();
    // The default gateway as dotted IPv4; empty without one.
    QString getGatewayAddress();

signals:
    // ptr points at a value of this object, or is null; valid during the call only.
    void commsExternalEvent(EVENT_TYPE_t event, SOURCE_TYPE_t source, void *ptr);
    // Wired at start-up, never raised: the stream is started through its script.
    void commsExternalSetPort(QString port);
    void commsExternalSetIP(QString ip);
    void commsExternalStartStream(QString ip, QString port);

public slots:
    // The tick: follows the network, then the connection.
    void commsExternalAttemptConnect();
    // Starts the ticks.
    void commsExternalInit();
    // Writes the bytes at once and as they are; without a connection, nothing. Drops a
    // connection whose peer has left more than a megabyte unread.
    void commsExternalSendCmdByteArray(QByteArray bytes);
    void commsExternalSendCmd(QString text);
    void commsExternalReadyRead();
    void commsExternalTCPConnect();
    void commsExternalKeepAliveTimeout();
    void commsExternaldelayedStop();
    void commsExternaldelayedStart();
    // A pulse on the GPIO line that boots the USB side.
    void commsExternalBootUSB();
    void commsExternalMonitorTethering();
    void commsExternalNullParams();

private:
    struct AppCommand;
    static const std::vector<AppCommand> commandsWithArgument;
    static const std::vector<AppCommand> commandsAlone;

    void restartKeepAlive();
    void closeSocket();

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
