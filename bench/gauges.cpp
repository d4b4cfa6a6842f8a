// SPDX-License-Identifier: LicenseRef-KT6120
#include "gauges.h"

#include <QDir>
#include <QFile>
#include <QList>

#include <unistd.h>

namespace
{

QByteArray content(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The fields of /proc/PID/stat after the program's name: [0] state, [1] parent,
// [11] and [12] user and system time in ticks, [13] and [14] those of its ended children.
QList<QByteArray> statFields(const QString &process)
{
    const QByteArray line = content("/proc/" + process + "/stat");
    return line.mid(line.lastIndexOf(')') + 2).split(' ');
}

QStringList processes()
{
    return QDir("/proc").entryList({"[0-9]*"}, QDir::Dirs);
}

int countChildren(qint64 parent, bool onlyZombies)
{
    int count = 0;
    for (const QString &process : processes()) {
        const QList<QByteArray> fields = statFields(process);
        if (fields.value(1).toLongLong() == parent && (!onlyZombies || fields.value(0) == "Z"))
            ++count;
    }
    return count;
}

// A number of /proc/PID/status, in the unit that it is given in.
double statusNumber(const QByteArray &status, const QByteArray &key)
{
    const int at = int(status.indexOf("\n" + key + ":"));
    return at < 0 ? 0 : status.mid(at + key.size() + 2, 20).simplified().split(' ')[0].toDouble();
}

} // namespace

namespace gauges
{

std::optional<double> read(const QByteArray &name, qint64 process)
{
    const QString place = "/proc/" + QString::number(process);
    if (name == "rss")
        return statusNumber(content(place + "/status"), "VmRSS") / 1024;
    if (name == "threads")
        return statusNumber(content(place + "/status"), "Threads");
    if (name == "descriptors")
        return QDir(place + "/fd").entryList(QDir::Files | QDir::System).size();
    if (name == "children")
        return countChildren(process, false);
    if (name == "zombies")
        return countChildren(process, true);
    if (name == "cpu" || name == "family") {
        const QList<QByteArray> fields = statFields(QString::number(process));
        double ticks = 0;
        for (int at = 11; at < (name == "cpu" ? 13 : 15); ++at)
            ticks += fields.value(at).toDouble();
        return ticks / double(sysconf(_SC_CLK_TCK));
    }
    return std::nullopt;
}

int processesWith(const QByteArray &text)
{
    int count = 0;
    for (const QString &process : processes())
        count += int(content("/proc/" + process + "/cmdline").replace('\0', ' ').contains(text));
    return count;
}

} // namespace gauges
