// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "inifile.h"
#include "keys.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QVariant>

// The status store: named values in the INI file paths::statusStore. The file has the value when
// the call returns, so other programs can read it at any time; the next read returns values that
// they wrote. A value that the file has already is written again only some seconds after the last
// write. No function reports an error: a failed write stays in memory and is retried.
class settings : public QObject
{
    Q_OBJECT

public:
    // Opens the store and writes the software version.
    explicit settings(QObject *parent);

    void settingsSetValue(const Key<QString> &key, const QString &value);
    void settingsSetValue(const Key<int> &key, int value);
    void settingsSetValue(const Key<uint16_t> &key, uint16_t value); // stored as an int
    void settingsSetValue(const Key<double> &key, double value);

    // The value of the key, or its default if it is missing.
    QVariant settingsGetValue(const AnyKey &key);

private:
    void write(const AnyKey &key, const QVariant &value);

    IniFile store;
    QElapsedTimer sinceWrite;
};
