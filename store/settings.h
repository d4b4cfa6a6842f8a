// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "inifile.h"
#include "keys.h"

#include <QObject>
#include <QString>
#include <QVariant>

// The status store: named values in the INI file paths::statusStore. Every write is on disk when it
// returns, so that other programs can read the file at any moment; the next read returns what they
// wrote. No function reports an error: a write that fails is kept in memory and retried, a missing
// key reads as its default.
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

    // The value of the key, else its default; a text that is no number converts to 0.
    QVariant settingsGetValue(const AnyKey &key);

private:
    void write(const AnyKey &key, const QVariant &value);

    IniFile store;
};
