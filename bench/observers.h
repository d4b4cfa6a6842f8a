// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "folderwatch.h"

#include <QByteArray>
#include <QMap>
#include <QString>

class Journal;
enum class Kind;

// Notes what is appended to a text file, whole lines at a time. A file that is replaced or
// cut is read again from its start.
class FileTail : public QObject
{
    Q_OBJECT

public:
    // clean turns a line of the file into what is noted.
    FileTail(Journal &notes, Kind what, const QString &file, QByteArray (*clean)(QByteArray));

    void read();

private:
    Journal &journal;
    Kind kind;
    QString path;
    QByteArray (*clean)(QByteArray);
    quint64 inode = 0;
    qint64 position = 0;
    FolderWatch folder;
};

// Notes every key of the status store that changes, as "key: old -> new".
class StoreWatch : public QObject
{
    Q_OBJECT

public:
    explicit StoreWatch(Journal &notes);

    // The value on disk; null when the key is missing.
    QString value(const QString &key) const { return values.value(key); }

private:
    void read();

    Journal &journal;
    QMap<QString, QString> values;
    FolderWatch folder;
};
