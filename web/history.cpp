// SPDX-License-Identifier: LicenseRef-KT6120
#include "history.h"

#include "paths.h"
#include "safefile.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QVector>

#include <cmath>
#include <mutex>
#include <utility>

namespace
{

constexpr qint64 secondsPerDay = 86400;
constexpr qint64 longest = 524'288; // bytes: more than two months of rows
constexpr qint64 longestLine = 4096;
constexpr int digits = 12;

// Seconds since 1970 of a row; 0 for a malformed line.
qint64 timeOf(const QByteArray &line, int columns)
{
    if (line.count(',') != columns)
        return 0;
    QDateTime time = QDateTime::fromString(line.left(line.indexOf(',')), "dd-MM-yyyy HH:mm:ss");
    time.setTimeSpec(Qt::UTC);
    return time.isValid() ? time.toSecsSinceEpoch() : 0;
}

} // namespace

namespace history
{

QByteArray read(int days)
{
    static std::mutex turn;
    const std::lock_guard lock(turn);
    QFile file(paths::statusCsv);
    if (!safefile::open(file, QIODevice::ReadOnly))
        return R"({"columns":[],"rows":[]})";
    QList<QByteArray> header = file.readLine(longest).trimmed().split(',');
    header.removeFirst();
    QJsonArray columns;
    for (const QByteArray &name : qAsConst(header))
        columns.append(QString::fromUtf8(name));

    if (file.size() - longest > file.pos()) {
        file.seek(file.size() - longest);
        file.readLine();
    }
    QVector<std::pair<qint64, qint64>> found; // time, offset in the file
    for (qint64 place = file.pos(); !file.atEnd(); place = file.pos()) {
        if (const qint64 time = timeOf(file.readLine(longestLine).trimmed(), header.size()))
            found.append({time, place});
    }
    // Counted back from the last row, not from now: the unit's clock may have been wrong.
    const qint64 last = found.isEmpty() ? 0 : found.last().first;
    QByteArray rows;
    for (const auto &[time, place] : qAsConst(found)) {
        if (time <= last - days * secondsPerDay || time > last)
            continue;
        file.seek(place);
        const QByteArray line = file.readLine(longestLine).trimmed();
        rows += (rows.isEmpty() ? "[" : ",[") + QByteArray::number(time);
        for (const QByteArray &field : line.mid(line.indexOf(',') + 1).split(',')) {
            bool ok = false;
            const double value = field.toDouble(&ok);
            rows +=
                ok && std::isfinite(value) ? ',' + QByteArray::number(value, 'g', digits) : ",null";
        }
        rows += ']';
    }
    return R"({"columns":)" + QJsonDocument(columns).toJson(QJsonDocument::Compact) + R"(,"rows":[)"
           + rows + "]}";
}

} // namespace history
