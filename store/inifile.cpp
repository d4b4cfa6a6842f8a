// SPDX-License-Identifier: LicenseRef-KT6120
#include "inifile.h"

#include "inivalues.h"
#include "safefile.h"

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
#include <sys/statvfs.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace
{

constexpr auto retryInterval = 2s;
// Another program that writes holds the lock for a few milliseconds.
constexpr auto lockPause = 5ms;
constexpr int lockPauses = 20;
// A program creates the lock file before it locks it, so a lock file younger than this counts as
// held. A time further in the future means that the clock was set back: the file is old.
constexpr qint64 minimumLockAge = 2; // seconds

// Free blocks that a write needs in addition to those of the new file: one for the lock file and up
// to three for the folder, if its directory tree grows for the two new names. Measured with 4,000
// writes to nearly full disks (tmpfs, ext4 with blocks of 1 and 4 KiB): the new file was truncated
// if no block was left for the lock, never otherwise.
constexpr quint64 spareBlocks = 4;
// Longest escape sequence of one character in the file.
constexpr quint64 longestEscape = 6; // bytes

// All zero if the file is missing or inaccessible.
struct stat status(const QByteArray &path)
{
    struct stat found = {};
    stat(path.constData(), &found);
    return found;
}

// Whether the file has not changed between two looks.
bool isSameFile(const struct stat &one, const struct stat &other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino && one.st_size == other.st_size
           && one.st_ctim.tv_sec == other.st_ctim.tv_sec
           && one.st_ctim.tv_nsec == other.st_ctim.tv_nsec;
}

bool isHeld(const QByteArray &lockPath, const struct stat &status)
{
    if (!S_ISREG(status.st_mode))
        return false;
    if (std::abs(QDateTime::currentSecsSinceEpoch() - qint64(status.st_mtime)) < minimumLockAge)
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
    writeTimer.setSingleShot(true);
    connect(&writeTimer, &QTimer::timeout, this, &IniFile::write);
}

IniFile::~IniFile()
{
    write();
}

QVariant IniFile::value(const AnyKey &key)
{
    read();
    return changes.value(key.name, values.value(key.name, key.absent));
}

// Compares with what was written, which takes no parse.
bool IniFile::holds(const AnyKey &key, const QVariant &value) const
{
    const auto found = written.constFind(key.name);
    return changes.isEmpty() && found != written.constEnd() && *found == value
           && isSameFile(status(path), writtenStatus);
}

void IniFile::setValue(const AnyKey &key, const QVariant &value)
{
    changes.insert(key.name, value);
}

void IniFile::write()
{
    writeTimer.stop();
    if (changes.isEmpty())
        return;
    if (isRegular() && isUnlocked() && hasRoom() && writeChanges()) {
        changes.clear();
        // Read it again: two writes within a tick of the disk's clock may leave the status as it
        // was.
        lastStatus.st_ino = 0;
    } else {
        writeTimer.start(retryInterval);
    }
}

void IniFile::writeSoon()
{
    writeTimer.start(0);
}

// Keeps the last values if the file exists but cannot be read.
void IniFile::read()
{
    const struct stat now = status(path);
    if (isSameFile(now, lastStatus))
        return;
    QFile file(QFile::decodeName(path));
    if (safefile::open(file, QIODevice::ReadOnly))
        values = iniValues(file.readAll());
    else if (now.st_nlink == 0)
        values.clear();
    else
        return;
    lastStatus = now;
}

bool IniFile::isRegular() const
{
    struct stat status = {};
    return stat(path.constData(), &status) == 0 ? S_ISREG(status.st_mode) : errno == ENOENT;
}

// QSettings waits half a minute for an unreadable lock file, and forever for one that it cannot
// remove or that a hanging program holds. This waits 100 ms; after a timeout it does not wait until
// the lock was free once.
bool IniFile::isUnlocked()
{
    for (int left = isLockHeld ? 0 : lockPauses;; --left) {
        struct stat status = {};
        const bool isThere = lstat(lockPath.constData(), &status) == 0;
        isLockHeld = isThere && isHeld(lockPath, status);
        if (!isThere)
            return errno == ENOENT;
        if (!isLockHeld)
            return unlink(lockPath.constData()) == 0; // fails for a directory
        if (left == 0)
            return false;
        QThread::msleep(lockPause.count());
    }
}

// QSettings writes a new file in the folder of the old one, or of a symlink's target.
bool IniFile::hasRoom() const
{
    QFileInfo file(QFile::decodeName(path));
    while (file.isSymLink()) // not circular: isRegular() was true
        file.setFile(file.symLinkTarget());
    const QByteArray folder = QFile::encodeName(file.path());
    struct statvfs disk = {};
    if (statvfs(folder.constData(), &disk) != 0 || disk.f_frsize == 0)
        return true; // the folder is missing; QSettings creates it
    quint64 size = file.size();
    for (auto change = changes.cbegin(); change != changes.cend(); ++change)
        size += change.key().size() + change.value().toString().size() + sizeof "[]\n=\n\n";
    const quint64 blocks = size * longestEscape / disk.f_frsize + 1 + spareBlocks;
    if (disk.f_bavail >= blocks)
        return true;
    // Root may use reserved blocks, but statvfs() also counts those that ext4 keeps for itself, a
    // fiftieth of the disk. So try it with an unnamed file.
    const int trial = open(folder.constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, S_IRUSR);
    if (trial < 0)
        return false;
    const QByteArray bytes(int(blocks * disk.f_frsize), '\0');
    const bool isThere = ::write(trial, bytes.constData(), bytes.size()) == bytes.size();
    close(trial);
    return isThere;
}

// A successful write gives the file a new inode. After a failed write QSettings keeps the changes
// in memory for all objects with this file name.
bool IniFile::writeChanges()
{
    const struct stat before = status(path);
    QSettings file(QFile::decodeName(path), QSettings::IniFormat);
    // QSettings keeps the content of a file by its size and its time in milliseconds, and would
    // write the old one back over that of another program. So give it what is in the file now.
    if (!isSameFile(before, writtenStatus)) {
        read();
        for (auto one = values.cbegin(); one != values.cend(); ++one) {
            if (file.value(one.key()) != one.value())
                file.setValue(one.key(), one.value());
        }
    }
    for (auto change = changes.cbegin(); change != changes.cend(); ++change)
        file.setValue(change.key(), change.value());
    file.sync();
    writtenStatus = status(path);
    for (auto change = changes.cbegin(); change != changes.cend(); ++change)
        written.insert(change.key(), change.value());
    // Another program may have removed the file or changed a key of ours.
    for (auto one = written.begin(); one != written.end();)
        one = file.value(one.key()).toString() == one->toString() ? one + 1 : written.erase(one);
    return file.status() != QSettings::AccessError && writtenStatus.st_ino != before.st_ino;
}
