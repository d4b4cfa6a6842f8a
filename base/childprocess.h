// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <chrono>
#include <string>

// Starting a program as a child and waiting for it. A program that is missing, fails, cannot be
// started or outlasts its wait is never reported: the caller goes on. No child has a descriptor of
// the program's own.
namespace childprocess
{

struct Command {
    QString program;
    QStringList arguments;
};

// A command line split at blanks; double quotes hold a word together.
Command fromLine(const QString &line);

// Starts a command in a new process object that stays a child of parent, and does not wait. The
// object is closed when the child has ended.
// Its standard output is discarded, so that a child that runs for months costs no memory; its
// standard error is the program's own.
QProcess *start(QObject *parent, const Command &command);

// Starts a command as start() does and waits for its end. False when the wait ran out or
// the program could not be started; a child that outlasts its wait runs on.
bool run(QObject *parent, const Command &command, std::chrono::milliseconds wait);

// Runs a command in a process object of its own and returns what its standard output has
// brought by the end of the wait, 64 KiB at most. It leads a process group: what then runs of it,
// of a child that outlasts its wait or of what it has started, is killed, so that a command that
// hangs does not pile up. The object is released when the child has ended, at the latest with
// parent. While any of a killed group still runs, the same command is not started again: the wait
// is spent on the child's end, and nothing is returned. What it says on standard error goes to the
// program's own when it differs from the last time.
QByteArray output(QObject *parent, const Command &command, std::chrono::milliseconds wait);

// The standard output of a shell command, line breaks included, read to its end; the exit
// status is not looked at. Throws std::runtime_error where no pipe can be opened.
std::string exec(const char *command);

} // namespace childprocess
