// SPDX-License-Identifier: LicenseRef-KT6120

// Input from outside as libFuzzer targets, one row of the table each, built as fuzz_NAME.

#include "commandwriter.h"
#include "commsexternal.h"
#include "commsinternal.h"
#include "eventhandler.h"
#include "monitor.h"
#include "paths.h"
#include "testsupport.h"

#include <QSerialPort>
#include <QTcpServer>
#include <QTcpSocket>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace
{

// Aborts, which is a finding, unless the condition holds.
void require(bool condition, const char *what)
{
    if (condition)
        return;
    fprintf(stderr, "not so: %s\n", what);
    abort();
}

// All requests to the event handler, from the phone and the commands file.
void askEverything(eventHandler &handler)
{
    for (const EVENT_TYPE_t request :
         {EVENT_BatteryStateRequest, EVENT_BatteryLevelRequest, EVENT_SondeFrequencyRequest,
          EVENT_SondeStateRequest, EVENT_LampValueRequest, EVENT_CoilerValueRequest,
          EVENT_IdnRequest, EVENT_ComputeTemperatureRequest, EVENT_TallwickDetectRequest,
          EVENT_CoilerModelRequest, EVENT_UnknownCommand}) {
        for (const SOURCE_TYPE_t source : {SOURCE_APP, SOURCE_FIFO})
            handler.eventHandlerProcess(request, source, nullptr);
    }
}

// Bytes from the phone app, over TCP, down to the event handler and back.
void app(const QByteArray &bytes)
{
    static auto &server = *new QTcpServer;
    static auto &link = *new commsExternal;
    static auto *near = link.findChild<QTcpSocket *>();
    static auto *far = [] {
        link.commsExternalInit();
        for (QTimer *timer : link.findChildren<QTimer *>())
            timer->stop(); // the ticks
        server.listen(QHostAddress::LocalHost);
        near->connectToHost(QHostAddress::LocalHost, server.serverPort());
        require(server.waitForNewConnection(5000), "the link connects");
        return server.nextPendingConnection();
    }();
    eventHandler handler;
    QObject::connect(&link, &commsExternal::commsExternalEvent, &handler,
                     &eventHandler::eventHandlerProcess);
    QObject::connect(&handler, &eventHandler::eventHandlerSendExternalCmd, &link,
                     &commsExternal::commsExternalSendCmd);
    // Each is one read of the link, which ignores what follows a NUL byte.
    for (const QByteArray &sent : {bytes, QByteArray("*IDN?\r\n")}) {
        far->write(sent);
        far->flush();
        while (near->bytesAvailable() < sent.size())
            near->waitForReadyRead();
        link.commsExternalReadyRead();
    }
    QByteArray heard;
    while (!heard.endsWith("KT6120 v" PROGRAM_VERSION "\r\n")) {
        require(far->waitForReadyRead(10000), "an answer comes after the input");
        heard += far->readAll();
    }
    QCoreApplication::processEvents();
}

// Bytes from the microcontroller, over a pseudo-terminal, down to the store.
void mcu(const QByteArray &bytes)
{
    static auto &pty = *new testsupport::Pty;
    static auto &link = *new commsInternal;
    static auto *port = [] {
        link.commsInternalInit();
        link.findChild<QTimer *>()->stop(); // the polls
        return link.findChild<QSerialPort *>();
    }();
    eventHandler handler;
    QObject::connect(&link, &commsInternal::commsInternalEvent, &handler,
                     &eventHandler::eventHandlerProcess);
    QObject::connect(&handler, &eventHandler::eventHandlerSendInternalCmd, &link,
                     &commsInternal::commsInternalSendCommand);
    // The next input starts on a new line, with an empty error queue.
    const QByteArray sent = bytes + "\n*CLS\n";
    pty.send(sent);
    while (port->waitForReadyRead(0)) {
    }
    for (int i = sent.count('\n'); i > 0; --i)
        link.serialPortProcessData();
    askEverything(handler);
    QCoreApplication::processEvents();
    pty.take();
}

// Content of the commands file, which the unit's web page writes.
void commandsfile(const QByteArray &bytes)
{
    testsupport::writeFile(paths::commandsFile, bytes);
    eventHandler handler;
    handler.eventHandlerFIFOChanged(paths::commandsFile);
    askEverything(handler);
}

// Status store and configuration file after a power cut, an editor or another program.
void ini(const QByteArray &bytes)
{
    testsupport::writeFile(paths::statusStore, bytes);
    testsupport::writeFile(paths::configuration, bytes);
    QString model("x40");
    {
        eventHandler handler;
        askEverything(handler);
        QMetaObject::invokeMethod(handler.findChild<monitor *>(), "monitor_timer_expired");
        handler.eventHandlerProcess(EVENT_CoilerModel, SOURCE_APP,
                                    payloadPointer<EVENT_CoilerModel>(model));
        QCoreApplication::processEvents(); // the configuration file is written
    }
    require(testsupport::iniValue(paths::statusStore, "Compute/SoftwareVersion")
                == "V" PROGRAM_VERSION,
            "the version is in the store");
    require(testsupport::iniValue(paths::configuration, "Coiler/Model") == model,
            "the model is in the configuration file");
    QFile::remove(paths::statusCsv);
}

// Bodies of the page's requests, each of which becomes one line of the commands file or none.
void request(const QByteArray &bytes)
{
    const QByteArray command = commandwriter::parse(bytes).line;
    require(command.size() <= 40, "a line is short");
    require(std::all_of(command.begin(), command.end(),
                        [](char byte) { return byte >= ' ' && byte < 0x7f; }),
            "a line is one line of plain letters");
    require(command.count(' ') <= 1, "a line is a word and an argument");
}

const QHash<QString, void (*)(const QByteArray &)> targets = {
    {"app", app}, {"commandsfile", commandsfile}, {"ini", ini}, {"mcu", mcu}, {"request", request},
};
void (*input)(const QByteArray &bytes) = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static QCoreApplication application(*argc, *argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    testsupport::freshWorld();
    input = targets.value(QString(**argv).section("fuzz_", -1));
    // No programs of this machine, such as the log rotation.
    qputenv("PATH", "/run/bench/bin");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    input(QByteArray(reinterpret_cast<const char *>(data), int(size)));
    return 0;
}
