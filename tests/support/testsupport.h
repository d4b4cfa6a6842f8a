// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QtTest>

#include <unistd.h>

// Stand-ins for programs that a desk does not have (bench/recorder): each records its calls.
namespace recorders
{

void install(const QString &path);
// Every call so far, "name argument argument".
QStringList calls();
void clearCalls();

} // namespace recorders

namespace testsupport
{

// A timeout against hanging; a busy machine may need long for anything.
constexpr int patience = 60000; // ms
#define TRY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, testsupport::patience)
#define TRY_COMPARE(actual, expected)                                                              \
    QTRY_COMPARE_WITH_TIMEOUT(actual, expected, testsupport::patience)

// Empties the commands file's folder, recorded calls and the install directory, which then holds
// recorders in the place of the unit's scripts.
void freshWorld();

// The whole file; empty when it is missing.
QByteArray readFile(const QString &path);
void writeFile(const QString &path, const QByteArray &content);

// The value of "Group/Entry" in an INI file; null if it is missing.
QString iniValue(const QString &path, const QString &key);

int openDescriptors();

// A pseudo-terminal in the place of the unit's serial port, and its far end.
class Pty
{
public:
    Pty();
    // Writes all bytes at once, as one arrival at the unit.
    void send(const QByteArray &bytes) const;
    // What has come since the last call.
    QByteArray take() const;

private:
    int farEnd = -1;
    int unitsEnd = -1; // kept open: it stays raw
};

// Collects what any thread logs, instead of printing it.
struct LogCapture {
    LogCapture();
    ~LogCapture();
    // Texts of one message type, in order.
    static QStringList texts(QtMsgType type);
    static void clear();
};

// Collects what the process writes to standard output or standard error.
class OutputCapture
{
    Q_DISABLE_COPY(OutputCapture)

public:
    explicit OutputCapture(int descriptor = STDOUT_FILENO);
    ~OutputCapture();
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
