// SPDX-License-Identifier: LicenseRef-KT6120
#include "inivalues.h"

#include <QFile>
#include <QSettings>

#include <atomic>
#include <sys/mman.h>
#include <sys/stat.h>

QMap<QString, QVariant> iniValues(const QByteArray &content)
{
    static std::atomic<time_t> copies = 0;
    QMap<QString, QVariant> values;
    QFile copy;
    const int memory = memfd_create("ini", MFD_CLOEXEC);
    if (memory < 0
        || !copy.open(memory, QIODevice::WriteOnly | QIODevice::Unbuffered,
                      QFileDevice::AutoCloseHandle)
        || copy.write(content) != content.size())
        return values;
    // QSettings caches a file by name, size and time, so each copy gets a different time.
    const time_t time = ++copies;
    const timespec times[] = {{time, 0}, {time, 0}};
    futimens(memory, times);
    const QSettings file(QString("/proc/self/fd/%1").arg(memory), QSettings::IniFormat);
    for (const QString &key : file.allKeys())
        values.insert(key, file.value(key));
    return values;
}
