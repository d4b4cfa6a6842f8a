// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariant>

#include <sys/stat.h>

// An INI file that this program alone writes. QSettings would block for ever or lose the file
// after power cuts, on full disks, and where something else has the place of the file or its lock.
// The file is read whenever it is a regular one, whatever its lock and its disk are like. QSettings
// writes it only while
// - the file is a regular one, or missing;
// - no lock file is beside it: one that nobody holds was left by a power cut and is removed;
// - the disk has room for a new file, since one that came out short passes for a good one.
// Otherwise, and when QSettings fails, the changes are kept and the write is retried.
class IniFile : public QObject
{
public:
    explicit IniFile(const QString &name);
    ~IniFile() override; // writes what is left, if it can

    // As the file has it now, whoever wrote it, but for a change that is yet to be written.
    QVariant value(const QString &key, const QVariant &defaultValue);
    // Takes a change, to be written by one of the next two.
    void setValue(const QString &key, const QVariant &value);
    void write();     // at once
    void writeSoon(); // from the event loop

private:
    void read();
    bool isRegular() const;
    bool isUnlocked();
    bool hasRoom() const;
    bool writeChanges();

    const QByteArray path;
    const QByteArray lockPath;
    QMap<QString, QVariant> values; // of the file as it was read last
    struct stat seen = {};          // its state then; all zero: missing
    QMap<QString, QVariant> changes;
    bool isLockHeld = false; // when it was last looked at
    QTimer writing;
};
