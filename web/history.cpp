// SPDX-License-Identifier: LicenseRef-KT6120
#include "history.h"

#include "paths.h"
#include "safefile.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QVector>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <utility>

namespace
{

constexpr qint64 secondsPerDay = 86400;
constexpr qint64 longest = 524'288; // bytes: more than two months of rows
constexpr int digits = 12;

// Seconds since 1970 of a row; 0 for a malformed line. Without QDateTime::fromString(), which takes
// 50 times as long: it looks the local time zone up for each row.
qint64 timeOf(const QByteArray &line, int columns)
{
    if (line.count(',') != columns)
        return 0;
    const auto number = [&line](int at, int length) { return line.mid(at, length).toInt(); };
    const QDateTime time(QDate(number(6, 4), number(3, 2), number(0, 2)),
                         QTime(number(11, 2), number(14, 2), number(17, 2)), Qt::UTC);
    return time.isValid() ? time.toSecsSinceEpoch() : 0;
}

} // namespace

namespace history
{

QByteArray read(int days)
{
    static std::mutex turn;
    const std::lock_guard lock(turn);
    const QString older = QString(paths::statusCsv) + paths::rotated;
    QFile file(paths::statusCsv);
    if (!file.exists()) // just rotated
        file.setFileName(older);
    if (!safefile::open(file, QIODevice::ReadOnly))
        return R"({"columns":[],"rows":[]})";
    QList<QByteArray> header = file.readLine(longest).trimmed().split(',');
    header.removeFirst();
    QJsonArray columns;
    for (const QByteArray &name : qAsConst(header))
        columns.append(QString::fromUtf8(name));

    QByteArray content = safefile::readEnd(paths::statusCsv, longest);
    content.prepend(safefile::readEnd(older, longest - content.size()));
    QVector<std::pair<qint64, QByteArray>> found; // time and line
    const QList<QByteArray> lines = content.split('\n');
    for (const QByteArray &line : lines) {
        if (const qint64 time = timeOf(line, header.size()))
            found.append({time, line});
    }
    // Counted back from the last row, not from now: the unit's clock may have been wrong.
    const qint64 last = found.isEmpty() ? 0 : found.last().first;
    // Where the clock was set back, earlier times follow later ones.
    std::stable_sort(found.begin(), found.end(),
                     [](const auto &one, const auto &other) { return one.first < other.first; });
    QByteArray rows;
    for (const auto &[time, line] : qAsConst(found)) {
        if (time <= last - days * secondsPerDay || time > last)
            continue;
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
