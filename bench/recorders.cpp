#include "recorders.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <stdexcept>

namespace
{

constexpr char folder[] = "/run/bench/";
constexpr char callsFile[] = "/run/bench/calls";

void write(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        throw std::runtime_error("cannot write " + path.toStdString());
    file.write(content);
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
    if (!QFile::copy(BENCH_RECORDER, path))
        throw std::runtime_error("cannot install a recorder at " + path.toStdString());
}

void setReply(const QString &key, const QByteArray &output, double delay, int status)
{
    clearReply(key);
    const QString place = folder + QString("replies/") + key + '/';
    QDir().mkpath(place);
    write(place + "output", output);
    if (delay > 0)
        write(place + "delay", QByteArray::number(delay));
    if (status != 0)
        write(place + "status", QByteArray::number(status));
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
