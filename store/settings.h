// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "inifile.h"
#include "keys.h"

#include <QElapsedTimer>
#include <QObject>
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

    // The value has the type of its key: QString, int, double, or uint16_t, which is stored as an
    // int.
    template <typename T>
    void settingsSetValue(const Key<T> &key, const T &value)
    {
        write(key, value);
    }

    // The value of the key, or its default if it is missing.
    QVariant settingsGetValue(const AnyKey &key);

private:
    void write(const AnyKey &key, const QVariant &value);

    IniFile store;
    QElapsedTimer sinceWrite;
};
