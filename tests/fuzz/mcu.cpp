// SPDX-License-Identifier: LicenseRef-KT6120

// Bytes from the microcontroller, over a pseudo-terminal, down to the store.

#include "fuzzworld.h"

#include "commsinternal.h"
#include "eventhandler.h"
#include "pty.h"

#include <QCoreApplication>
#include <QSerialPort>
#include <QTimer>

namespace
{

struct Line {
    Pty mcu;
    commsInternal link;
    QSerialPort *port = nullptr;
};

Line *line = nullptr;

} // namespace

void fuzz::start()
{
    line = new Line;
    line->link.commsInternalInit();
    line->link.findChild<QTimer *>()->stop(); // the polls
    line->port = line->link.findChild<QSerialPort *>();
}

void fuzz::input(const QByteArray &bytes)
{
    eventHandler handler;
    QObject::connect(&line->link, &commsInternal::commsInternalEvent, &handler,
                     &eventHandler::eventHandlerProcess);
    QObject::connect(&handler, &eventHandler::eventHandlerSendInternalCmd, &line->link,
                     &commsInternal::commsInternalSendCommand);
    // The next input starts with a line and an error queue of its own.
    const QByteArray sent = bytes + "\n*CLS\n";
    line->mcu.send(sent);
    while (line->port->waitForReadyRead(0)) {
    }
    for (int i = sent.count('\n'); i > 0; --i)
        line->link.serialPortProcessData();
    fuzz::askEverything(handler);
    QCoreApplication::processEvents();
    line->mcu.clear();
}
