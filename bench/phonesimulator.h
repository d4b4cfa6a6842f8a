// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QTcpServer>
#include <QTimer>
#include <QUdpSocket>

#include <array>

class Journal;
class PhoneNetwork;
class QTcpSocket;

// The phone at the far end of the networks, with its viewing app: a TCP server at port 8082,
// a heartbeat every 5 s, and open ports for the video stream.
class PhoneSimulator : public QObject
{
    Q_OBJECT

public:
    PhoneSimulator(Journal &notes, PhoneNetwork &network);

    // Carries out "app WORD...": a mood (refuse, silent, ...), "raw BYTES", or a line to send.
    // Throws std::runtime_error where there is no connection to send on.
    void command(const QList<QByteArray> &words);

    // The unit's timers run that many times as fast, and so does the app's heartbeat.
    void setSpeed(int factor);

private:
    struct Verb;
    static const Verb verbs[];

    void listen();
    QTcpSocket *connected() const; // throws where there is none
    void takeConnection();
    void send(const QByteArray &bytes);

    Journal &journal;
    PhoneNetwork &network;
    QTcpServer server;
    QTcpSocket *connection = nullptr; // the unit's; owned by the server
    QTimer heartbeat;
    bool talks = true;
    bool reads = true;
    std::array<QUdpSocket, 2> streamPorts; // so that the stream finds somebody at home
};
