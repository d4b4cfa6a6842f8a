#include "phonesimulator.h"

#include "journal.h"
#include "network.h"

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

PhoneSimulator::PhoneSimulator(Journal &notes, Network &networks)
    : journal(notes), network(networks)
{
    connect(&server, &QTcpServer::newConnection, this, &PhoneSimulator::takeConnection);
    listen();
    {
        const Network::InPhone inPhone(network);
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
    const Network::InPhone inPhone(network);
    if (!server.isListening() && !server.listen(QHostAddress::AnyIPv4, appPort))
        throw std::runtime_error("the phone cannot listen at port 8082");
}

void PhoneSimulator::command(const QList<QByteArray> &words)
{
    const QByteArray &verb = words[0];
    if (verb == "refuse") {
        server.close();
        if (connection)
            connection->abort();
    } else if (verb == "accept") {
        network.setPhoneReachable(true);
        listen();
    } else if (verb == "silent") {
        talks = false;
    } else if (verb == "hang") {
        talks = reads = false;
    } else if (verb == "talk") {
        talks = reads = true;
        if (connection)
            emit connection->readyRead(); // take up what waits
    } else if (verb == "drop") {
        network.setPhoneReachable(false);
    } else if (verb == "close" && connection) {
        connection->disconnectFromHost();
    } else if (verb == "halfclose" && connection) {
        shutdown(int(connection->socketDescriptor()), SHUT_WR);
    } else if (verb == "raw" && words.size() == 2) {
        send(words[1]);
    } else if (verb == "big" && words.size() == 2) {
        send(QByteArray(words[1].toInt(), 'x') + "\r\n");
    } else {
        send(words.join(' ') + "\r\n");
    }
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
    if (!connection)
        throw std::runtime_error("the unit is not connected to the app");
    journal.note(Kind::Phone, bytes);
    connection->write(bytes);
    connection->flush();
}
