// SPDX-License-Identifier: LicenseRef-KT6120
#include "history.h"

#include "paths.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>

namespace
{

constexpr qint64 secondsPerDay = 86400;
constexpr qint64 longest = 524'288; // bytes: more than two months of rows

QJsonArray parseRow(const QList<QByteArray> &fields)
{
    QDateTime time = QDateTime::fromString(fields[0], "dd-MM-yyyy HH:mm:ss");
    if (!time.isValid())
        return {};
    time.setTimeSpec(Qt::UTC);
    QJsonArray row = {time.toSecsSinceEpoch()};
    for (int at = 1; at < fields.size(); ++at) {
        bool ok = false;
        const double value = fields[at].toDouble(&ok);
        row.append(ok ? QJsonValue(value) : QJsonValue());
    }
    return row;
}

} // namespace

namespace history
{

QJsonObject read(int days)
{
    QFile file(paths::statusCsv);
    if (!file.open(QIODevice::ReadOnly))
        return {{"columns", QJsonArray()}, {"rows", QJsonArray()}};
    const QList<QByteArray> header = file.readLine(longest).trimmed().split(',');
    QJsonArray columns;
    for (int at = 1; at < header.size(); ++at)
        columns.append(QString::fromUtf8(header[at]));

    if (file.size() - longest > file.pos()) {
        file.seek(file.size() - longest);
        file.readLine();
    }
    QList<QJsonArray> rows;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> fields = line.trimmed().split(',');
        const QJsonArray row = fields.size() == header.size() ? parseRow(fields) : QJsonArray();
        if (!row.isEmpty())
            rows.append(row);
    }
    // Not before now: the unit's clock may have been wrong, and its last days still be of interest.
    QJsonArray shown;
    const qint64 last = rows.isEmpty() ? 0 : qint64(rows.last()[0].toDouble());
    for (const QJsonArray &row : qAsConst(rows)) {
        const auto time = qint64(row[0].toDouble());
        if (time > last - days * secondsPerDay && time <= last)
            shown.append(row);
    }
    return {{"columns", columns}, {"rows", shown}};
}

} // namespace history
