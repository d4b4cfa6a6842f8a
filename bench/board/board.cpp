// SPDX-License-Identifier: LicenseRef-KT6120
#include "board.h"

#include "../journal.h"
#include "../phonenetwork.h"

#include <QEventLoop>
#include <QTimer>

#include <stdexcept>

namespace
{

constexpr int helloInterval = 1000; // ms
constexpr int checkInterval = 200;  // ms, for a machine that has gone

} // namespace

Board::Board(Journal &notes, const QString &folder)
    : emulator(folder,
               [this] {
                   if (line)
                       line->hear();
               }),
      journal(notes)
{
}

void Board::open()
{
    line = std::make_unique<MessageLine>(SerialLine::toSocket(emulator.console()));
    connect(line.get(), &MessageLine::arrived, this, &Board::heard);
    connect(line.get(), &MessageLine::babbled, this, [this](const QByteArray &said) {
        journal.note(Kind::Bench, "console: " + said + '\n');
    });
}

void Board::start(const PhoneNetwork &phone)
{
    switchOn(phone);
    waitForHello();
    // What a machine does not keep while it is put away.
    carryOut("adc healthy");
}

void Board::cut()
{
    emulator.kill();
    line.reset();
}

void Board::switchOn(const PhoneNetwork &phone)
{
    greeted = false;
    {
        const PhoneNetwork::InPhone inPhone(phone);
        emulator.start();
    }
    open();
}

void Board::waitForHello()
{
    QTimer again;
    connect(&again, &QTimer::timeout, this, [this] { line->send("hello"); });
    again.start(helloInterval);
    waitFor(greeted);
}

void Board::carryOut(const QByteArray &command)
{
    if (!isOn())
        throw std::runtime_error("the board has no power");
    answered = false;
    failure.reset();
    line->send("ask", command);
    waitFor(answered);
    if (failure)
        throw std::runtime_error(failure->toStdString());
}

void Board::waitFor(const bool &flag)
{
    QEventLoop loop;
    QTimer check;
    connect(this, &Board::changed, &loop, &QEventLoop::quit);
    connect(&check, &QTimer::timeout, &loop, &QEventLoop::quit);
    check.start(checkInterval);
    while (!flag) {
        if (!emulator.isRunning())
            throw std::runtime_error("the board has gone");
        loop.exec();
    }
}

void Board::heard(const Message &message)
{
    if (message.word == "note") {
        const int blank = int(message.text.indexOf(' '));
        const int kind = message.text.left(blank).toInt();
        if (kind >= 0 && kind < kindCount)
            journal.note(Kind(kind), message.text.mid(blank + 1));
        return;
    }
    if (message.word == "hello")
        greeted = true;
    if (message.word == "failed")
        failure = message.text;
    if (message.word == "done" || message.word == "failed")
        answered = true;
    emit changed();
}
