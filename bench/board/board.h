// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "emulator.h"
#include "message.h"

#include <memory>
#include <optional>

class Journal;
class PhoneNetwork;

// An emulated board with its own bench on it, as the world's bench has it.
class Board : public QObject
{
    Q_OBJECT

public:
    Board(Journal &notes, const QString &folder);

    // A board that stands ready, its networks in the phone's world.
    void start(const PhoneNetwork &phone);
    void cut();                               // the power
    void switchOn(const PhoneNetwork &phone); // it boots
    void waitForHello();                      // of its bench
    bool isOn() const { return line && emulator.isRunning(); }

    // Has the unit's bench carry out a command; events pass meanwhile. Throws std::runtime_error
    // with what it said, or where the board goes away.
    void carryOut(const QByteArray &command);

    Emulator emulator;

signals:
    void changed(); // an answer, a hello, or the machine's end

private:
    void open();
    void heard(const Message &message);
    void waitFor(const bool &flag);

    Journal &journal;
    std::unique_ptr<MessageLine> line;
    bool greeted = false;
    bool answered = false;
    std::optional<QByteArray> failure; // of the last command
};
