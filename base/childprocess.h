// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <chrono>
#include <string>

// Starts programs as child processes and waits for them. Reports no error if a program is missing,
// fails, cannot be started or exceeds its timeout. No child inherits a file descriptor beyond
// standard error.
namespace childprocess
{

struct Command {
    QString program;
    QStringList arguments;
};

// Splits a command line at blanks; double quotes enclose a word that contains blanks.
Command fromLine(const QString &line);

// Starts a command and returns at once. Returns the new process object, which stays a child of
// parent and is closed when the child process exits. Standard output is discarded, so that a child
// that runs for months uses no memory; standard error is inherited.
QProcess *start(QObject *parent, const Command &command);

// Starts a command like start() and waits for it to exit. Returns false after a timeout, or if the
// program could not be started. A timeout does not kill the child.
bool run(QObject *parent, const Command &command, std::chrono::milliseconds wait);

// Runs a command and returns what it has written to standard output by its exit or the timeout, at
// most 64 KiB. The child leads a process group, which is then killed as a whole, so that hanging
// commands do not accumulate. While any process of a killed group still runs, the same command is
// not started again and the result is empty. The process object is deleted when the child exits,
// at the latest with parent. Standard error is forwarded; a repeated message once an hour.
QByteArray output(QObject *parent, const Command &command, std::chrono::milliseconds wait);

// Runs a shell command and returns its whole standard output. Ignores the exit status. Throws
// std::runtime_error if no pipe can be opened.
std::string exec(const char *command);

} // namespace childprocess
