// SPDX-License-Identifier: LicenseRef-KT6120
#include "settings.h"

#include "paths.h"
#include "version.h"

settings::settings(QObject *parent) : QObject(parent), store(paths::statusStore)
{
    settingsSetValue("Compute/SoftwareVersion",
                     QString("V%1.%2.%3").arg(version::major, version::minor, version::build));
}

void settings::settingsSetValue(const QString &key, const QString &value)
{
    write(key, value);
}

void settings::settingsSetValue(const QString &key, int value)
{
    write(key, value);
}

void settings::settingsSetValue(const QString &key, unsigned short value)
{
    write(key, int(value));
}

void settings::settingsSetValue(const QString &key, double value)
{
    write(key, value);
}

QVariant settings::settingsGetValue(const QString &key, const QString &defaultValue)
{
    return store.value(key, defaultValue);
}

void settings::write(const QString &key, const QVariant &value)
{
    store.setValue(key, value);
    store.write();
}
