// SPDX-License-Identifier: LicenseRef-KT6120

// The least that a program with the measured one's libraries can do:
//
//   floor bare     initialises Qt and GStreamer
//   floor store DEVICE FILE
//                  writes each line of a serial device into a key of an INI file
//   floor echo     connects to port 8082 of 192.168.42.1 and sends back what comes
//
// Each writes one byte to standard output when it is ready.

#include <QCoreApplication>
#include <QSerialPort>
#include <QSettings>
#include <QTcpSocket>

#include <cstdio>
#include <gst/gst.h>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList words = QCoreApplication::arguments();
    if (words[1] == "bare")
        gst_init(nullptr, nullptr);
    if (words[1] == "store") {
        auto *line = new QSerialPort(words[2]);
        auto *ini = new QSettings(words[3], QSettings::IniFormat);
        line->setBaudRate(115200);
        if (!line->open(QIODevice::ReadWrite))
            qFatal("no serial line");
        QObject::connect(line, &QSerialPort::readyRead, [=] {
            ini->setValue("Battery/State", line->readLine().trimmed().mid(10));
            ini->sync();
        });
    }
    if (words[1] == "echo") {
        auto *socket = new QTcpSocket;
        QObject::connect(socket, &QTcpSocket::connected,
                         [=] { socket->setSocketOption(QAbstractSocket::LowDelayOption, 1); });
        QObject::connect(socket, &QTcpSocket::readyRead, [=] { socket->write(socket->readAll()); });
        socket->connectToHost("192.168.42.1", 8082);
    }
    putchar('x');
    fflush(stdout);
    return QCoreApplication::exec();
}
