// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QSettings>
#include <QString>
#include <QTimer>
#include <QVariant>

#include <memory>
#include <sys/stat.h>

// An INI file that this program alone writes, made safe against what power cuts, full disks and
// strange finds in its folder do to the settings library, which would wait for ever or ruin the
// file. The library is let at the file only while
// - the file is a regular one, or missing;
// - no lock lies beside it: one that nobody holds was left by a power cut and is removed;
// - the disk has room for a new file, since one that came out short passes for a good one.
// At other times the changes are kept here and tried again until they are written.
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
    bool isRead() const;
    bool isSafe() const;
    bool isUnlocked() const;
    bool hasRoom(quint64 size) const;

    const QByteArray path;
    const QByteArray lockPath;
    const QByteArray folder;
    QMap<QString, QVariant> changes;
    std::unique_ptr<QSettings> file; // from the first time that it was safe to open
    struct stat seen = {};           // the file as it was read or written last
    QTimer writing;
};
