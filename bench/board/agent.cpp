// SPDX-License-Identifier: LicenseRef-KT6120
#include "agent.h"

#include "../bench.h"
#include "../commands.h"

#include <QTimer>

#include <stdexcept>

Agent::Agent(Bench &where, const QString &console)
    : bench(where), line(SerialLine::onTerminal(console))
{
    connect(&bench.journal, &Journal::noted, this, [this](Kind kind, const QByteArray &text) {
        line.send("note", QByteArray::number(int(kind)) + ' ' + text);
    });
    connect(&line, &MessageLine::arrived, this, [this](const Message &message) {
        if (message.word == "hello")
            line.send("hello");
        // Not from within the line's own work: a command lets events pass.
        if (message.word == "ask")
            QTimer::singleShot(0, this, [this, text = message.text] { carryOut(text); });
    });
    line.send("hello");
}

void Agent::carryOut(const QByteArray &command)
{
    try {
        commands::run(bench, command);
        line.send("done");
    } catch (const std::runtime_error &error) {
        line.send("failed", error.what());
    }
}
