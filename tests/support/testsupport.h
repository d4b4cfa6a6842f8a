// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryFile>
#include <QtTest>

#include <unistd.h>

// Stand-ins for programs that a desk does not have (bench/recorder): each notes its calls.
namespace recorders
{

// Puts one at an absolute path. What stood there before becomes the real program that it runs where
// no reply is set.
void install(const QString &path);
// What it prints instead, for its name alone or for one set of arguments; delay in seconds.
void setReply(const QString &key, const QByteArray &output, double delay = 0, int status = 0);
// Every call so far, "name argument argument", and when it came, in seconds since boot.
QStringList calls();
QList<double> times();
void clearCalls();

} // namespace recorders

// What several tests need of the sandboxed world.
namespace testsupport
{

// A busy machine may need long for anything: a bound that only guards against hanging is a minute.
constexpr int patience = 60000; // ms
#define TRY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, testsupport::patience)
#define TRY_COMPARE(actual, expected)                                                              \
    QTRY_COMPARE_WITH_TIMEOUT(actual, expected, testsupport::patience)

// Empties the install directory, the commands file's folder and the recorded calls, so that
// the test functions of one process do not see each other.
void freshWorld();

// The whole file; empty when it is missing.
QByteArray readFile(const QString &path);
void writeFile(const QString &path, const QByteArray &content);

// The raw value of "Group/Entry" in an INI file as it stands on disk; null when missing.
QString iniValue(const QString &path, const QString &key);

int openDescriptors();
double residentMiB();

// Collects what is logged while it lives, instead of printing it; any thread may log.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    // Texts of one message type, in order.
    static QStringList texts(QtMsgType type);
    static void clear();
};

// Takes what the process writes to standard output or standard error while it lives.
class OutputCapture
{
public:
    explicit OutputCapture(int descriptor = STDOUT_FILENO);
    ~OutputCapture();
    OutputCapture(const OutputCapture &) = delete;
    OutputCapture &operator=(const OutputCapture &) = delete;

    QByteArray text() const { return readFile(file.fileName()).mid(taken); }
    // What has come since the last call.
    QByteArray take();

private:
    QTemporaryFile file;
    int taken = 0;
    int stream;
    int kept;
};

} // namespace testsupport
