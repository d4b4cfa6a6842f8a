// SPDX-License-Identifier: LicenseRef-KT6120
#include "inifile.h"

#include <QCoreApplication>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace
{

constexpr auto retryInterval = 2s;
// Another program holds the lock for some milliseconds when it writes.
constexpr auto lockPause = 5ms;
constexpr int lockTries = 20;

// Free blocks that a write needs beside those of the new file. Found at the brim of small disks
// (tmpfs, ext4 with blocks of 1 and of 4 KiB, folders with room for names and without, 4,000
// writes of a store with all its keys): with as many blocks free as the new file has, or fewer, it
// came out short, since the lock had taken one; with one more, never. One for the lock, then, and
// three for the folder, should it grow in depth for the two new names. For the unit's store that
// makes 20 KiB in blocks of 4 KiB.
constexpr quint64 spareBlocks = 4;
// Bytes that a character of a key or a value may become in the file.
constexpr quint64 longestEscape = 6;

// All zero for a file that is missing.
struct stat status(const QByteArray &path)
{
    struct stat found = {};
    stat(path.constData(), &found);
    return found;
}

} // namespace

IniFile::IniFile(const QString &name)
    : path(QFile::encodeName(name)), lockPath(path + ".lock"),
      folder(QFile::encodeName(QFileInfo(name).path()))
{
    writing.setSingleShot(true);
    connect(&writing, &QTimer::timeout, this, &IniFile::write);
}

IniFile::~IniFile()
{
    if (!changes.isEmpty())
        write();
}

QVariant IniFile::value(const QString &key, const QVariant &defaultValue)
{
    if (!changes.isEmpty() || !isRead())
        write(); // reads what another program has written, too
    if (changes.contains(key))
        return changes.value(key);
    return file ? file->value(key, defaultValue) : defaultValue;
}

void IniFile::setValue(const QString &key, const QVariant &value)
{
    changes.insert(key, value);
}

void IniFile::write()
{
    writing.stop();
    if (!isSafe()) {
        if (!changes.isEmpty())
            writing.start(retryInterval);
        return;
    }
    if (!file)
        file = std::make_unique<QSettings>(QFile::decodeName(path), QSettings::IniFormat);
    for (auto change = changes.cbegin(); change != changes.cend(); ++change)
        file->setValue(change.key(), change.value());
    changes.clear();
    file->sync();
    seen = status(path);
    // The library would write once more from the event loop, unasked.
    QCoreApplication::removePostedEvents(file.get(), QEvent::UpdateRequest);
}

void IniFile::writeSoon()
{
    writing.start(0);
}

// Asking the library would take ten times as long.
bool IniFile::isRead() const
{
    const struct stat now = status(path);
    return file && now.st_ino == seen.st_ino && now.st_size == seen.st_size
           && now.st_mtim.tv_sec == seen.st_mtim.tv_sec
           && now.st_mtim.tv_nsec == seen.st_mtim.tv_nsec;
}

bool IniFile::isSafe() const
{
    struct stat status = {};
    const bool isFile =
        stat(path.constData(), &status) == 0 ? S_ISREG(status.st_mode) : errno == ENOENT;
    return isFile && isUnlocked() && hasRoom(status.st_size);
}

// The library waits for a lock for half a minute where it cannot be read, and for ever where it
// cannot be removed or is held by a program that hangs.
bool IniFile::isUnlocked() const
{
    struct stat status = {};
    if (lstat(lockPath.constData(), &status) != 0)
        return errno == ENOENT;
    if (S_ISREG(status.st_mode)) {
        const int lock = open(lockPath.constData(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
        bool isHeld = lock >= 0;
        for (int left = lockTries; isHeld && left > 0; --left) {
            isHeld = flock(lock, LOCK_SH | LOCK_NB) != 0;
            if (isHeld)
                QThread::msleep(lockPause.count());
        }
        if (lock >= 0)
            close(lock);
        if (isHeld)
            return false;
    }
    return unlink(lockPath.constData()) == 0; // a folder stays
}

// A new file stands beside the old one until it is whole.
bool IniFile::hasRoom(quint64 size) const
{
    struct statvfs disk = {};
    if (statvfs(folder.constData(), &disk) != 0 || disk.f_frsize == 0)
        return true; // a folder that is yet to be made
    for (auto change = changes.cbegin(); change != changes.cend(); ++change)
        size += change.key().size() + change.value().toString().size() + sizeof "[]\n=\n\n";
    const quint64 blocks = size * longestEscape / disk.f_frsize + 1 + spareBlocks;
    if (disk.f_bavail >= blocks)
        return true;
    // Root may have more, but how much cannot be told: ext4 counts as free what it keeps for
    // itself, a fiftieth of the disk. So it is tried, in a file without a name.
    const int trial = open(folder.constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, S_IRUSR);
    if (trial < 0)
        return false;
    const QByteArray bytes(int(blocks * disk.f_frsize), '\0');
    const bool isThere = ::write(trial, bytes.constData(), bytes.size()) == bytes.size();
    close(trial);
    return isThere;
}
