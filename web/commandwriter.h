// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QList>

class Freshness;

// Checks the page's commands and writes them into the commands file, one at a time.
namespace commandwriter
{

struct Command {
    QByteArray line;           // of the commands file; empty for an invalid request
    QList<const char *> shows; // keys of the store that show its effect
    QString from;              // the level that the lamp must be at; empty: any
};

// Parses a body such as {"command": "SONDE", "argument": "1"} or {"command": "LAMPUP", "from":
// "15"}. An unknown command, a wrong argument or any other member gives an empty line.
Command parse(const QByteArray &body);

// Whether MODEL takes this name.
bool isModel(const QString &name);

enum class Outcome {
    Taken,       // carried out; the store shows it if the command has a key
    NotTaken,    // not read by the unit; withdrawn
    Overtaken,   // a lamp step that a LAMPOFF replaced; nothing was done
    Overwritten, // the unit read another writer's line, or the lamp is not where it must be
    NotShown,    // read by the unit, but the store does not show it
    Unwritable,  // the commands file is missing or not writable
    Busy,        // another writer held the file's lock, or a LAMPOFF came first
};

// Writes the line of a command and waits until the unit has carried it out. A line that the unit
// has not read is withdrawn when the store stops changing. Writers that lock the file (flock) take
// turns, but LAMPOFF replaces a line that the unit has not read yet.
Outcome carryOut(const Command &command, Freshness &freshness);

} // namespace commandwriter
