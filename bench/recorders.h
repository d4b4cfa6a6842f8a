// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// One call of a recorded program.
struct Call {
    double uptime; // seconds since boot, hundredths
    QString name;
    QStringList arguments;
};

// The stand-ins for programs that a desk does not have (bench/recorder), in the sandbox.
namespace recorders
{

// Puts the stand-in at an absolute path. What stood there before becomes the real program
// that the stand-in runs where no reply is set.
void install(const QString &path);
// Takes the stand-in away again, the real program with it: the unit finds nothing there.
void uninstall(const QString &path);
// The program that the stand-in of that name runs where no reply is set.
void setReal(const QString &name, const QString &program);

// What the stand-in prints instead of running the real program, for the name alone or for
// one set of arguments ("KT6120_bb_read.sh 0x12"). delay in seconds.
void setReply(const QString &key, const QByteArray &output, double delay = 0, int status = 0);
// One trait of the reply, the others as they are. A delay alone comes before the real program.
void setOutput(const QString &key, const QByteArray &output);
void setDelay(const QString &key, double seconds);
void setStatus(const QString &key, int status);
// It does not end before its reply is cleared.
void hold(const QString &key);
void clearReply(const QString &key);

// Every call so far, oldest first.
QList<Call> calls();
void clearCalls();

} // namespace recorders
