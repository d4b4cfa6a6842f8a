// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "inifile.h"

#include <QObject>
#include <QString>
#include <QVariant>

// The unit's one store of named values: the INI file paths::statusStore. A key is
// "Group/Entry". Every write is on disk when it returns, so that other programs on the unit
// can read the file at any moment; what they write there is seen at the next read. Nothing reports
// an error: a write that cannot reach the file is kept in memory and tried again, a missing key
// reads as its default.
class settings : public QObject
{
    Q_OBJECT

public:
    // Opens the store and writes the software version.
    explicit settings(QObject *parent);

    void settingsSetValue(const QString &key, const QString &value);
    void settingsSetValue(const QString &key, int value);
    void settingsSetValue(const QString &key, unsigned short value); // stored as an int
    void settingsSetValue(const QString &key, double value);

    // The value of the key, else the default; a text that is no number converts to 0.
    QVariant settingsGetValue(const QString &key, const QString &defaultValue);

private:
    void write(const QString &key, const QVariant &value);

    IniFile store;
};
