// SPDX-License-Identifier: LicenseRef-KT6120
#include "phonesimulator.h"

#include "journal.h"
#include "phonenetwork.h"

#include <QTcpSocket>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <sys/socket.h>

using namespace std::chrono_literals;

namespace
{

constexpr quint16 appPort = 8082;
constexpr quint16 usbStreamPort = 49152;
constexpr quint16 ethernetStreamPort = 8001;
constexpr std::chrono::milliseconds heartbeatInterval = 5s;

} // namespace

PhoneSimulator::PhoneSimulator(Journal &notes, PhoneNetwork &networks)
    : journal(notes), network(networks)
{
    connect(&server, &QTcpServer::newConnection, this, &PhoneSimulator::takeConnection);
    listen();
    {
        const PhoneNetwork::InPhone inPhone(network);
        streamPorts[0].bind(QHostAddress::AnyIPv4, usbStreamPort);
        streamPorts[1].bind(QHostAddress::AnyIPv4, ethernetStreamPort);
    }
    for (QUdpSocket &port : streamPorts)
        connect(&port, &QUdpSocket::readyRead, &port, [&port] {
            while (port.hasPendingDatagrams())
                port.readDatagram(nullptr, 0); // whoever wants the picture taps the wire
        });
    connect(&heartbeat, &QTimer::timeout, this, [this] {
        if (talks && connection)
            send("KestraApp\r\n");
    });
    heartbeat.start(heartbeatInterval);
}

void PhoneSimulator::setSpeed(int factor)
{
    heartbeat.start(std::max(heartbeatInterval / factor, 1ms));
}

void PhoneSimulator::listen()
{
    const PhoneNetwork::InPhone inPhone(network);
    if (!server.isListening() && !server.listen(QHostAddress::AnyIPv4, appPort))
        throw std::runtime_error("the phone cannot listen at port 8082");
}

// What it can be told; anything else it says to the unit.
struct PhoneSimulator::Verb {
    const char *name;
    int words; // with the name; a line with another number of words is said
    void (*act)(PhoneSimulator &phone, const QByteArray &argument);
};
const PhoneSimulator::Verb PhoneSimulator::verbs[] = {
    {"refuse", 1,
     [](PhoneSimulator &phone, const QByteArray &) {
         phone.server.close();
         if (phone.connection)
             phone.connection->abort();
     }},
    {"accept", 1,
     [](PhoneSimulator &phone, const QByteArray &) {
         phone.network.setPhoneReachable(true);
         phone.listen();
     }},
    {"silent", 1, [](PhoneSimulator &phone, const QByteArray &) { phone.talks = false; }},
    {"hang", 1,
     [](PhoneSimulator &phone, const QByteArray &) { phone.talks = phone.reads = false; }},
    {"talk", 1,
     [](PhoneSimulator &phone, const QByteArray &) {
         phone.talks = phone.reads = true;
         if (phone.connection)
             emit phone.connection->readyRead(); // take up what waits
     }},
    {"drop", 1,
     [](PhoneSimulator &phone, const QByteArray &) { phone.network.setPhoneReachable(false); }},
    {"close", 1,
     [](PhoneSimulator &phone, const QByteArray &) { phone.connected()->disconnectFromHost(); }},
    {"halfclose", 1,
     [](PhoneSimulator &phone, const QByteArray &) {
         shutdown(int(phone.connected()->socketDescriptor()), SHUT_WR);
     }},
    {"raw", 2, [](PhoneSimulator &phone, const QByteArray &bytes) { phone.send(bytes); }},
    {"big", 2,
     [](PhoneSimulator &phone, const QByteArray &count) {
         phone.send(QByteArray(count.toInt(), 'x') + "\r\n");
     }},
};

void PhoneSimulator::command(const QList<QByteArray> &words)
{
    for (const Verb &verb : verbs) {
        if (words.first() == verb.name && words.size() == verb.words)
            return verb.act(*this, words.value(1));
    }
    send(words.join(' ') + "\r\n");
}

QTcpSocket *PhoneSimulator::connected() const
{
    if (!connection)
        throw std::runtime_error("the unit is not connected to the app");
    return connection;
}

void PhoneSimulator::takeConnection()
{
    while (QTcpSocket *next = server.nextPendingConnection()) {
        connection = next;
        next->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        connect(next, &QTcpSocket::readyRead, this, [this, next] {
            if (reads)
                journal.note(Kind::App, next->readAll());
        });
        connect(next, &QTcpSocket::disconnected, this, [this, next] {
            journal.note(Kind::Network, "app: the unit's connection has ended\n");
            if (connection == next)
                connection = nullptr;
            next->deleteLater();
        });
        journal.note(Kind::Network, "app: the unit has connected from "
                                        + next->peerAddress().toString().toUtf8() + '\n');
    }
}

void PhoneSimulator::send(const QByteArray &bytes)
{
    connected()->write(bytes);
    journal.note(Kind::Phone, bytes);
    connection->flush();
}
