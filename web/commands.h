// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QList>

// Commands of the page: checked, and written into the commands file one at a time.
namespace commands
{

struct Command {
    QByteArray line;           // for the commands file; empty where the request is none
    QList<const char *> shows; // keys of the store that tell what came of it
};

// A request's body, such as {"command": "SONDE", "argument": "1"}. Everything that is not exactly
// that, with a known command and an argument of its kind, gives an empty line.
Command parse(const QByteArray &body);

enum class Outcome {
    Taken,      // the unit has carried it out
    NotTaken,   // it has not looked; the line is withdrawn
    Overtaken,  // a step of the lamp for which a LAMPOFF came first; nothing was done
    Unwritable, // there is no commands file, or it may not be written
    Busy,       // another command is waited for all the time, or came first
};

// Writes the line and waits until the unit has carried it out; for a unit that is silent, a moment
// only. A second caller waits for the first, but LAMPOFF takes the place of what the unit has not
// read yet.
Outcome carryOut(const QByteArray &line, bool silent);

} // namespace commands
