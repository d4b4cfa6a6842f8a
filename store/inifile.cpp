// SPDX-License-Identifier: LicenseRef-KT6120
#include "inifile.h"

#include <QCoreApplication>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

#include <chrono>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace
{

// Free space at which a write is safe: the new file, the lock and folder entries take a few
// blocks of 4 KiB.
constexpr quint64 room = 65'536; // bytes
constexpr auto retryInterval = 2s;

} // namespace

IniFile::IniFile(const QString &path)
    : QSettings(path, QSettings::IniFormat), folder(QFile::encodeName(QFileInfo(path).path()))
{
    QFile::remove(path + ".lock");
}

void IniFile::write()
{
    if (hasRoom())
        sync();
}

bool IniFile::event(QEvent *event)
{
    if (event->type() == QEvent::UpdateRequest && !hasRoom()) {
        // The library asks once only, until it has written.
        QTimer::singleShot(retryInterval, this, [this] {
            QCoreApplication::postEvent(this, new QEvent(QEvent::UpdateRequest));
        });
        return true;
    }
    return QSettings::event(event);
}

// True also where it cannot be told, such as for a folder that is yet to be made.
bool IniFile::hasRoom() const
{
    struct statvfs disk = {};
    if (statvfs(folder.constData(), &disk) != 0 || disk.f_blocks == 0)
        return true;
    const quint64 blocks = geteuid() == 0 ? disk.f_bfree : disk.f_bavail;
    return blocks * disk.f_frsize >= room;
}
