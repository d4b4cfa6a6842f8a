// SPDX-License-Identifier: LicenseRef-KT6120
#include "emulator.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>
#include <QScopedValueRollback>

#include <csignal>
#include <stdexcept>
#include <unistd.h>

namespace
{

constexpr int patience = 60'000;                       // ms, for an answer of the machine
constexpr int attempt = 50;                            // ms, between two looks for it
constexpr quint32 systemTimer = 0x3f003004;            // microseconds, the low word
constexpr quint32 levels[] = {0x3f200034, 0x3f200038}; // of GPIO lines 0 to 31, 32 to 53
constexpr char address[] = "52:54:00:00:00:%1";

void connectTo(QLocalSocket &socket, const QString &path, const QProcess &machine)
{
    const QDeadlineTimer end(patience);
    for (;;) {
        socket.connectToServer(path);
        if (socket.waitForConnected(attempt))
            return;
        if (end.hasExpired() || machine.state() == QProcess::NotRunning)
            throw std::runtime_error("the board's machine does not start");
        usleep(attempt * 1000);
    }
}

} // namespace

QByteArray Emulator::readLine(QLocalSocket &socket) const
{
    const QDeadlineTimer end(patience);
    while (!socket.canReadLine()) {
        if (!socket.waitForReadyRead(attempt))
            meanwhile();
        if (end.hasExpired() || socket.state() != QLocalSocket::ConnectedState)
            throw std::runtime_error("the board's machine does not answer");
    }
    return socket.readLine();
}

Emulator::Emulator(const QString &place, std::function<void()> whileWaiting)
    : folder(place), meanwhile(std::move(whileWaiting))
{
    process.setProcessChannelMode(QProcess::ForwardedOutputChannel);
    QObject::connect(&process, &QProcess::readyReadStandardError, &process, [this] {
        while (process.canReadLine()) {
            const QByteArray line = process.readLine();
            // At each plug: a kernel asks an adapter for what only a faster one has.
            if (!line.startsWith("usbnet: failed control transaction"))
                fprintf(stderr, "%s", line.constData());
        }
    });
    process.setReadChannel(QProcess::StandardError);
}

void Emulator::start()
{
    for (const char *socket : {"/console", "/mcu", "/qmp", "/qtest"})
        QFile::remove(folder + socket);
    process.start(BENCH_EMULATE, {folder, folder + "/card.qcow2"});
    if (!process.waitForStarted())
        throw std::runtime_error("cannot start " BENCH_EMULATE);
    connectTo(monitor, folder + "/qmp", process);
    readLine(monitor); // the greeting
    command("qmp_capabilities");
    connectTo(registers, folder + "/qtest", process);
    last = reg(systemTimer);
    before = 0;
}

void Emulator::kill()
{
    if (!isRunning())
        return;
    monitor.abort();
    registers.abort();
    process.kill();
    process.waitForFinished(patience);
}

QJsonObject Emulator::command(const QString &name, const QJsonObject &arguments)
{
    const QJsonObject told{{"execute", name}, {"arguments", arguments}};
    monitor.write(QJsonDocument(told).toJson(QJsonDocument::Compact) + '\n');
    for (;;) {
        QJsonObject answer = QJsonDocument::fromJson(readLine(monitor)).object();
        if (answer.contains("error"))
            throw std::runtime_error(answer["error"].toObject()["desc"].toString().toStdString());
        if (answer.contains("return"))
            return answer; // what comes before are events
    }
}

quint32 Emulator::reg(quint32 place)
{
    if (registers.state() != QLocalSocket::ConnectedState)
        throw std::runtime_error("the board's machine has gone");
    const QScopedValueRollback<bool> now(asking, true);
    registers.write("readl 0x" + QByteArray::number(place, 16) + '\n');
    const QList<QByteArray> answer = readLine(registers).split(' ');
    return answer.value(1).trimmed().toUInt(nullptr, 16);
}

double Emulator::seconds()
{
    if (asking) // what is heard meanwhile wants to know the time
        return before / 1e6;
    try {
        const quint32 now = reg(systemTimer);
        before += now - last; // the word overflows every 71 minutes
        last = now;
    } catch (const std::runtime_error &) {
        // It has switched itself off: its time stands.
    }
    return before / 1e6;
}

bool Emulator::level(int line)
{
    return reg(levels[line / 32]) >> (line % 32) & 1;
}

void Emulator::plugIn(const QString &tap, int adapter)
{
    command(
        "netdev_add",
        {{"type", "tap"}, {"id", tap}, {"ifname", tap}, {"script", "no"}, {"downscript", "no"}});
    command("device_add", {{"driver", "usb-net"},
                           {"id", "usb-" + tap},
                           {"netdev", tap},
                           {"mac", QString(address).arg(adapter, 2, 16, QChar('0'))}});
}

void Emulator::unplug(const QString &tap)
{
    command("device_del", {{"id", "usb-" + tap}});
    command("netdev_del", {{"id", tap}});
}
