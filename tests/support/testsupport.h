// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryFile>
#include <QtTest>

#include <unistd.h>

// What several tests need of the sandboxed world.
namespace testsupport
{

// A busy machine may need long for anything: a bound that only guards against hanging is a minute.
constexpr int patience = 60000; // ms
#undef QTRY_VERIFY
#define QTRY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, testsupport::patience)
#undef QTRY_COMPARE
#define QTRY_COMPARE(actual, expected)                                                             \
    QTRY_COMPARE_WITH_TIMEOUT(actual, expected, testsupport::patience)

// Empties the install directory, the commands file's folder and the recorded calls, so that
// the test functions of one process do not see each other.
void freshWorld();

// The whole file; empty when it is missing.
QByteArray readFile(const QString &path);
void writeFile(const QString &path, const QByteArray &content);

// The raw value of "Group/Entry" in an INI file as it stands on disk; null when missing.
QString iniValue(const QString &path, const QString &key);

// The calls of the stand-ins so far, in words: "name argument argument".
QStringList calls();

int openDescriptors();

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
