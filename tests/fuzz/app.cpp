// SPDX-License-Identifier: LicenseRef-KT6120

// Bytes from the phone app, over TCP, down to the event handler and back.

#include "fuzzworld.h"

#include "commsexternal.h"
#include "eventhandler.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <sys/ioctl.h>

namespace
{

struct Phone {
    QTcpServer server;
    commsExternal link;
    QTcpSocket *far = nullptr;
    QTcpSocket *near = nullptr;
};

Phone *phone = nullptr;

void connectPhone()
{
    phone->link.commsExternalTCPConnect();
    fuzz::require(phone->server.waitForNewConnection(5000), "the link connects");
    phone->far = phone->server.nextPendingConnection();
}

// The bytes as one read of the link's: what follows a NUL byte in a read is not looked at.
void deliver(const QByteArray &bytes)
{
    phone->far->write(bytes);
    phone->far->flush();
    int arrived = 0;
    while (arrived < bytes.size())
        ioctl(int(phone->near->socketDescriptor()), FIONREAD, &arrived);
    QCoreApplication::processEvents();
}

} // namespace

void fuzz::start()
{
    const QStringList network = {"usb0", "192.168.42.10/24", "192.168.42.1"};
    require(QProcess::execute(BENCH_PLUG, network) == 0, "the network is made");
    phone = new Phone;
    phone->server.listen(QHostAddress("192.168.42.1"), 8082);
    phone->link.commsExternalInit();
    for (QTimer *timer : phone->link.findChildren<QTimer *>())
        timer->stop(); // the ticks
    phone->near = phone->link.findChild<QTcpSocket *>();
    phone->link.commsExternaldelayedStart();
    connectPhone();
}

void fuzz::input(const QByteArray &bytes)
{
    eventHandler handler;
    QObject::connect(&phone->link, &commsExternal::commsExternalEvent, &handler,
                     &eventHandler::eventHandlerProcess);
    QObject::connect(&handler, &eventHandler::eventHandlerSendExternalCmd, &phone->link,
                     &commsExternal::commsExternalSendCmd);
    deliver(bytes);
    deliver("*IDN?\r\n");
    QElapsedTimer waited;
    waited.start();
    QByteArray heard;
    while (!heard.endsWith("KT6120 v" PROGRAM_VERSION "\r\n")) {
        require(waited.elapsed() < 10000, "an answer comes after the input");
        phone->far->waitForReadyRead(1);
        heard += phone->far->readAll();
    }
}
