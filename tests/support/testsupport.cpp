// SPDX-License-Identifier: LicenseRef-KT6120
#include "testsupport.h"

#include "paths.h"

#include <array>
#include <fcntl.h>
#include <pty.h>

namespace
{

QMutex lock;
QHash<QtMsgType, QStringList> messages;

void collect(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    const QMutexLocker locker(&lock);
    messages[type] += text;
}

constexpr char callsFile[] = "/run/bench/calls"; // time, tab, name and arguments

} // namespace

namespace recorders
{

void install(const QString &path)
{
    QDir().mkpath(QFileInfo(path).path());
    if (!QFile::copy(BENCH_RECORDER, path))
        qFatal("cannot install a recorder at %s", qPrintable(path));
}

QStringList calls()
{
    QStringList lines = QString(testsupport::readFile(callsFile)).split('\n', Qt::SkipEmptyParts);
    return lines.replaceInStrings(QRegularExpression("^.*\t"), QString());
}

void clearCalls()
{
    QFile::remove(callsFile);
}

} // namespace recorders

namespace testsupport
{

void freshWorld()
{
    for (const char *folder : {"/home/pi/KT6120/bin", "/var/www/html"}) {
        QDir(folder).removeRecursively();
        QDir().mkpath(folder);
    }
    recorders::clearCalls();
    for (const char *script :
         {"bb_read", "gpio_read", "gpio_write", "shutdown", "stream_start", "stream_stop"})
        recorders::install(QString("/home/pi/KT6120/bin/KT6120_%1.sh").arg(script));
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) < 0)
        qFatal("cannot write %s", qPrintable(path));
}

QString iniValue(const QString &path, const QString &key)
{
    return QSettings(path, QSettings::IniFormat).value(key).toString();
}

int openDescriptors()
{
    return QDir("/proc/self/fd").entryList(QDir::Files | QDir::System).size();
}

Pty::Pty()
{
    termios raw{};
    cfmakeraw(&raw);
    if (openpty(&farEnd, &unitsEnd, nullptr, &raw, nullptr) != 0
        || !QFile::link(ttyname(unitsEnd), paths::mcuSerialDevice))
        qFatal("no pseudo-terminal at %s: not in the sandbox?", paths::mcuSerialDevice);
    fcntl(farEnd, F_SETFL, O_NONBLOCK);
}

void Pty::send(const QByteArray &bytes) const
{
    if (write(farEnd, bytes.constData(), size_t(bytes.size())) != bytes.size())
        qFatal("the unit does not read");
}

QByteArray Pty::take() const
{
    QByteArray taken;
    std::array<char, 4096> piece{};
    for (ssize_t count = 0; (count = read(farEnd, piece.data(), piece.size())) > 0;)
        taken.append(piece.data(), int(count));
    return taken;
}

LogCapture::LogCapture()
{
    clear();
    qInstallMessageHandler(collect);
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(nullptr);
}

QStringList LogCapture::texts(QtMsgType type)
{
    const QMutexLocker locker(&lock);
    return messages.value(type);
}

void LogCapture::clear()
{
    const QMutexLocker locker(&lock);
    messages.clear();
}

OutputCapture::OutputCapture(int descriptor) : stream(descriptor), kept(dup(stream))
{
    fflush(stdout);
    if (!file.open())
        qFatal("no temporary file");
    dup2(file.handle(), stream);
}

OutputCapture::~OutputCapture()
{
    dup2(kept, stream);
    close(kept);
    if (QTest::currentTestFailed())
        fprintf(stderr, "captured:\n%s\n", text().constData());
}

QByteArray OutputCapture::take()
{
    QByteArray fresh = text();
    taken += fresh.size();
    return fresh;
}

} // namespace testsupport
