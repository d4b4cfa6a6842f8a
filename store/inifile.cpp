// SPDX-License-Identifier: LicenseRef-KT6120
#include "inifile.h"

#include "regularfile.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QThread>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace
{

constexpr auto retryInterval = 2s;
// Another program holds the lock for some milliseconds when it writes.
constexpr auto lockPause = 5ms;
constexpr int lockPauses = 20;
// A lock is made first and taken then: one younger than this counts as held. So does one as little
// ahead of the clock; one further ahead is older than the step that the clock has made.
constexpr qint64 lockYouth = 2; // seconds

// Free blocks that a write needs beside those of the new file. Found at the brim of small disks
// (tmpfs, ext4 with blocks of 1 and of 4 KiB, folders with room for names and without, 4,000
// writes of a store with all its keys): with as many blocks free as the new file has, or fewer, it
// came out short, since the lock had taken one; with one more, never. One for the lock, then, and
// three for the folder, should it grow in depth for the two new names. For the unit's store that
// makes 20 KiB in blocks of 4 KiB.
constexpr quint64 spareBlocks = 4;
// Bytes that a character of a key or a value may become in the file.
constexpr quint64 longestEscape = 6;

// All zero for a file that is missing or cannot be reached.
struct stat status(const QByteArray &path)
{
    struct stat found = {};
    stat(path.constData(), &found);
    return found;
}

// What an INI file with these bytes holds. QSettings opens files by name and waits for the
// lock when an earlier write failed, so it gets a copy in memory.
QMap<QString, QVariant> parsed(const QByteArray &bytes)
{
    static time_t copies = 0;
    QMap<QString, QVariant> values;
    QFile copy;
    const int memory = memfd_create("ini", MFD_CLOEXEC);
    if (memory < 0
        || !copy.open(memory, QIODevice::WriteOnly | QIODevice::Unbuffered,
                      QFileDevice::AutoCloseHandle)
        || copy.write(bytes) != bytes.size())
        return values;
    // QSettings does not read a file again that has the name, size and time of an earlier one.
    const timespec times[] = {{++copies, 0}, {copies, 0}};
    futimens(memory, times);
    const QSettings file(QString("/proc/self/fd/%1").arg(memory), QSettings::IniFormat);
    for (const QString &key : file.allKeys())
        values.insert(key, file.value(key));
    return values;
}

bool isHeld(const QByteArray &lockPath, const struct stat &status)
{
    if (!S_ISREG(status.st_mode))
        return false;
    if (std::abs(QDateTime::currentSecsSinceEpoch() - qint64(status.st_mtime)) < lockYouth)
        return true;
    const int lock = open(lockPath.constData(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (lock < 0)
        return false;
    const bool held = flock(lock, LOCK_SH | LOCK_NB) != 0;
    close(lock);
    return held;
}

} // namespace

IniFile::IniFile(const QString &name) : path(QFile::encodeName(name)), lockPath(path + ".lock")
{
    writing.setSingleShot(true);
    connect(&writing, &QTimer::timeout, this, &IniFile::write);
}

IniFile::~IniFile()
{
    write();
}

QVariant IniFile::value(const QString &key, const QVariant &defaultValue)
{
    read();
    return changes.value(key, values.value(key, defaultValue));
}

void IniFile::setValue(const QString &key, const QVariant &value)
{
    changes.insert(key, value);
}

void IniFile::write()
{
    writing.stop();
    if (changes.isEmpty())
        return;
    if (isRegular() && isUnlocked() && hasRoom() && writeChanges())
        changes.clear();
    else
        writing.start(retryInterval);
}

void IniFile::writeSoon()
{
    writing.start(0);
}

// A file that cannot be read stays as it was known.
void IniFile::read()
{
    const struct stat now = status(path);
    if (now.st_dev == seen.st_dev && now.st_ino == seen.st_ino && now.st_size == seen.st_size
        && now.st_ctim.tv_sec == seen.st_ctim.tv_sec && now.st_ctim.tv_nsec == seen.st_ctim.tv_nsec)
        return;
    QFile file(QFile::decodeName(path));
    if (regularfile::open(file, QIODevice::ReadOnly))
        values = parsed(file.readAll());
    else if (now.st_nlink == 0)
        values.clear();
    else
        return;
    seen = now;
}

bool IniFile::isRegular() const
{
    struct stat status = {};
    return stat(path.constData(), &status) == 0 ? S_ISREG(status.st_mode) : errno == ENOENT;
}

// QSettings waits for a lock for half a minute where it cannot be read, and for ever where it
// cannot be removed or is held by a program that hangs. Once a wait has run out, the next is after
// the lock was seen free.
bool IniFile::isUnlocked()
{
    for (int left = isLockHeld ? 0 : lockPauses;; --left) {
        struct stat status = {};
        const bool isThere = lstat(lockPath.constData(), &status) == 0;
        isLockHeld = isThere && isHeld(lockPath, status);
        if (!isThere)
            return errno == ENOENT;
        if (!isLockHeld)
            return unlink(lockPath.constData()) == 0; // a folder stays
        if (left == 0)
            return false;
        QThread::msleep(lockPause.count());
    }
}

// A new file stands beside the old one until it is whole; beside what a link leads to.
bool IniFile::hasRoom() const
{
    QFileInfo file(QFile::decodeName(path));
    while (file.isSymLink()) // one that leads round is not regular
        file.setFile(file.symLinkTarget());
    const QByteArray folder = QFile::encodeName(file.path());
    struct statvfs disk = {};
    if (statvfs(folder.constData(), &disk) != 0 || disk.f_frsize == 0)
        return true; // a folder that is yet to be made
    quint64 size = file.size();
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

// A successful write replaces the file by a new one. After a failed one QSettings keeps the changes
// for all objects with this file name.
bool IniFile::writeChanges()
{
    const struct stat before = status(path);
    QSettings file(QFile::decodeName(path), QSettings::IniFormat);
    for (auto change = changes.cbegin(); change != changes.cend(); ++change)
        file.setValue(change.key(), change.value());
    file.sync();
    return file.status() != QSettings::AccessError && status(path).st_ino != before.st_ino;
}
