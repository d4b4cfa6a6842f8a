// SPDX-License-Identifier: LicenseRef-KT6120
#include "recorders.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <stdexcept>

namespace
{

constexpr char folder[] = "/run/bench/";
constexpr char callsFile[] = "/run/bench/calls";

// Replaced by a rename, so that a stand-in never reads half a reply.
void writeTrait(const QString &key, const QString &trait, const QByteArray &content)
{
    const QString place = folder + QString("replies/") + key;
    QDir().mkpath(place);
    QSaveFile file(place + '/' + trait);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.commit())
        throw std::runtime_error("cannot set a reply of " + key.toStdString());
}

} // namespace

namespace recorders
{

void install(const QString &path)
{
    const QFileInfo place(path);
    QDir().mkpath(folder + QString("real"));
    QDir().mkpath(place.path());
    if (place.exists())
        QFile::rename(path, folder + QString("real/") + place.fileName());
    else
        QFile::remove(path); // a link to nothing
    if (!QFile::copy(qEnvironmentVariable("BENCH_RECORDER", BENCH_RECORDER), path))
        throw std::runtime_error("cannot install a recorder at " + path.toStdString());
}

void uninstall(const QString &path)
{
    QFile::remove(path);
}

void setReal(const QString &name, const QString &program)
{
    const QString link = folder + QString("real/") + name;
    QFile::remove(link);
    QFile::link(program, link);
}

void setReply(const QString &key, const QByteArray &output, double delay, int status)
{
    clearReply(key);
    setOutput(key, output);
    if (delay > 0)
        setDelay(key, delay);
    if (status != 0)
        setStatus(key, status);
}

void setOutput(const QString &key, const QByteArray &output)
{
    writeTrait(key, "output", output);
}

void setDelay(const QString &key, double seconds)
{
    writeTrait(key, "delay", QByteArray::number(seconds) + '\n');
}

void hold(const QString &key)
{
    writeTrait(key, "hold", {});
}

void setStatus(const QString &key, int status)
{
    writeTrait(key, "status", QByteArray::number(status) + '\n');
}

void clearReply(const QString &key)
{
    QDir(folder + QString("replies/") + key).removeRecursively();
}

QList<Call> calls()
{
    QList<Call> all;
    QFile file(callsFile);
    if (!file.open(QIODevice::ReadOnly))
        return all;
    for (const QByteArray &line : file.readAll().split('\n')) {
        const QStringList fields = QString::fromUtf8(line).split('\t');
        if (fields.size() >= 2)
            all.append({fields[0].toDouble(), fields[1], fields.mid(2)});
    }
    return all;
}

void clearCalls()
{
    QFile::remove(callsFile);
}

} // namespace recorders
