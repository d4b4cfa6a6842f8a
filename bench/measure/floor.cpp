// SPDX-License-Identifier: LicenseRef-KT6120

// What the measured program cannot undercut: the same libraries doing the bare minimum.
//
//   floor bare     Qt and GStreamer made ready, one byte on standard output, then idle
//   floor store DEVICE FILE
//                  one byte on standard output; then a line on that serial device becomes a
//                  value of that INI file, as of the status store
//   floor echo     connects to port 8082 of 192.168.42.1 and sends back what comes

#include <QCoreApplication>
#include <QSerialPort>
#include <QSettings>
#include <QTcpSocket>

#include <cstdio>
#include <gst/gst.h>

namespace
{

void sayReady()
{
    putchar('x');
    fflush(stdout);
}

void bare()
{
    gst_init(nullptr, nullptr);
    sayReady();
}

void store(const QString &device, const QString &file)
{
    auto *ini = new QSettings(file, QSettings::IniFormat);
    auto *line = new QSerialPort(device);
    line->setBaudRate(115200);
    if (!line->open(QIODevice::ReadWrite))
        qFatal("no serial line");
    QObject::connect(line, &QSerialPort::readyRead, [=] {
        ini->setValue("Battery/State", line->readLine().trimmed().mid(10));
        ini->sync();
    });
    sayReady();
}

void echo()
{
    auto *socket = new QTcpSocket;
    QObject::connect(socket, &QTcpSocket::connected,
                     [=] { socket->setSocketOption(QAbstractSocket::LowDelayOption, 1); });
    QObject::connect(socket, &QTcpSocket::readyRead, [=] { socket->write(socket->readAll()); });
    socket->connectToHost("192.168.42.1", 8082);
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QString mode = argc > 1 ? argv[1] : "";
    if (mode == "bare")
        bare();
    else if (mode == "store" && argc > 3)
        store(argv[2], argv[3]);
    else if (mode == "echo")
        echo();
    else
        return 2;
    return QCoreApplication::exec();
}
