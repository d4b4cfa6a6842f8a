// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QList>

class Freshness;

// Commands of the page: checked, and written into the commands file one at a time.
namespace commandwriter
{

struct Command {
    QByteArray line;           // for the commands file; empty where the request is none
    QList<const char *> shows; // keys of the store that tell what came of it
};

// A request's body, such as {"command": "SONDE", "argument": "1"}. Everything that is not exactly
// that, with a known command and an argument of its kind, gives an empty line.
Command parse(const QByteArray &body);

enum class Outcome {
    Taken,       // the unit has carried it out, and the store shows it where a key tells
    NotTaken,    // it has not looked; the line is withdrawn
    Overtaken,   // a step of the lamp for which a LAMPOFF came first; nothing was done
    Overwritten, // another writer's line stood there when it looked
    NotShown,    // it has read the line, and the store does not show it
    Unwritable,  // there is no commands file, or it may not be written
    Busy,        // another writer has the file's lock all the time, or a LAMPOFF came first
};

// Writes the line of a command and waits until the unit has carried it out. A line that the unit
// has not read is withdrawn when the store stops changing. Writers that lock the file (flock) take
// turns, but LAMPOFF replaces a line that the unit has not read yet.
Outcome carryOut(const QByteArray &line, Freshness &freshness);

} // namespace commandwriter
