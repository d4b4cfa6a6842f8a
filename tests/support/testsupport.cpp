// SPDX-License-Identifier: LicenseRef-KT6120
#include "testsupport.h"

#include "recorders.h"

#include <QDir>
#include <QFile>
#include <QMutex>
#include <QSettings>
#include <QTest>

#include <utility>

namespace
{

QMutex lock;
QList<std::pair<QtMsgType, QString>> messages;

void collect(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    const QMutexLocker locker(&lock);
    messages.append({type, text});
}

} // namespace

namespace testsupport
{

void freshWorld()
{
    for (const char *folder : {"/home/pi/KT6120/bin", "/var/www/html", "/run/bench/replies"}) {
        QDir(folder).removeRecursively();
        QDir().mkpath(folder);
    }
    recorders::clearCalls();
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
    const QVariant value = QSettings(path, QSettings::IniFormat).value(key);
    return value.isValid() ? value.toString() : QString();
}

QStringList calls()
{
    QStringList lines;
    for (const Call &call : recorders::calls())
        lines.append((QStringList(call.name) + call.arguments).join(' '));
    return lines;
}

int openDescriptors()
{
    return QDir("/proc/self/fd").entryList(QDir::Files | QDir::System).size();
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
    QStringList found;
    for (const auto &[messageType, text] : std::as_const(messages)) {
        if (messageType == type)
            found.append(text);
    }
    return found;
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
