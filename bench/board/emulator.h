// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QJsonObject>
#include <QLocalSocket>
#include <QProcess>
#include <QString>

#include <functional>

// The board's machine: QEMU, as bench/board/emulate runs it, its monitor and its registers.
// Everything throws std::runtime_error where the machine does not answer.
class Emulator
{
public:
    // Keeps its card and its sockets in a folder. What there is to hear of its lines is heard by
    // `whileWaiting`: a machine whose line nobody reads stands still, and answers nobody.
    Emulator(const QString &place, std::function<void()> whileWaiting);
    ~Emulator() { kill(); }
    Emulator(const Emulator &) = delete;
    Emulator &operator=(const Emulator &) = delete;

    // A board that stands ready, from a card of its own; later starts boot from that card.
    void start();
    void kill(); // as a power cut ends a board
    bool isRunning() const { return process.state() != QProcess::NotRunning; }
    QString console() const { return folder + "/console"; }
    QString mcuLine() const { return folder + "/mcu"; }

    // Of the board's system timer since it was switched on or taken up, to its end.
    double seconds();
    // A GPIO line's level as its pin shows it.
    bool level(int line);

    // The far end of a USB network adapter is the tap of that name; its last byte tells adapters
    // of the board apart (see bench/board/root).
    void plugIn(const QString &tap, int adapter);
    void unplug(const QString &tap);

private:
    QJsonObject command(const QString &name, const QJsonObject &arguments = {});
    quint32 reg(quint32 place);
    QByteArray readLine(QLocalSocket &socket) const;

    QString folder;
    std::function<void()> meanwhile;
    QProcess process;
    QLocalSocket monitor;
    QLocalSocket registers;
    double before = 0; // us, to the last look at the timer
    bool asking = false;
    quint32 last = 0;
};
