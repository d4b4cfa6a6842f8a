// SPDX-License-Identifier: LicenseRef-KT6120
#include "settings.h"

#include "paths.h"
#include "version.h"

#include <chrono>

using namespace std::chrono_literals;

namespace
{

// An unchanged value is written again only after this time, which spares the card: the MCU reports
// seven values a second. Readers see by the writes that the program runs.
constexpr std::chrono::milliseconds refreshInterval = 5s;

} // namespace

settings::settings(QObject *parent) : QObject(parent), store(paths::statusStore)
{
    settingsSetValue(keys::softwareVersion,
                     QString("V%1.%2.%3").arg(version::major, version::minor, version::build));
}

QVariant settings::settingsGetValue(const AnyKey &key)
{
    return store.value(key);
}

void settings::write(const AnyKey &key, const QVariant &value)
{
    if (sinceWrite.isValid() && !sinceWrite.hasExpired(refreshInterval.count())
        && store.holds(key, value))
        return;
    store.setValue(key, value);
    store.write();
    sinceWrite.start();
}
