// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "keys.h"

#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariant>

#include <sys/stat.h>

// An INI file. QSettings opens and locks the file itself, and can block forever or lose the file
// after a power cut or on a full disk. So IniFile calls it only when it can neither block nor lose
// the file: to parse a copy in memory, and to write while
// - the file is a regular file or missing;
// - there is no lock file; a stale one, left by a power cut, is removed;
// - the disk has room for a new file, because QSettings does not detect a truncated one.
// Otherwise, and if QSettings fails, the changes stay in memory and the write is retried. Reading
// needs neither the lock nor space on the disk.
class IniFile : public QObject
{
public:
    explicit IniFile(const QString &name);
    ~IniFile() override; // tries to write pending changes

    // The pending change of the key, else its value in the file now, also if another program wrote
    // it, else its default.
    QVariant value(const AnyKey &key);
    // Whether the value was written, nobody has changed the file since, and no change is pending.
    bool holds(const AnyKey &key, const QVariant &value) const;
    // Adds a pending change; write() or writeSoon() writes it.
    void setValue(const AnyKey &key, const QVariant &value);
    void write();     // now
    void writeSoon(); // from the event loop

private:
    void read();
    bool isRegular() const;
    bool isUnlocked();
    bool hasRoom() const;
    bool writeChanges();

    const QByteArray path;
    const QByteArray lockPath;
    QMap<QString, QVariant> values; // content of the file when it was last read
    struct stat lastStatus = {};    // its status then; all zero: missing
    QMap<QString, QVariant> changes;
    QMap<QString, QVariant> written; // by this object
    struct stat writtenStatus = {};  // of the file after the last write
    bool isLockHeld = false;         // when it was last checked
    QTimer writeTimer;
};
