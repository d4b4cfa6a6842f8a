// SPDX-License-Identifier: LicenseRef-KT6120
#include "regularfile.h"

#include <QFileInfo>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// The most that a power cut leaves as zeros: a file system's block.
constexpr qint64 mostZeros = 4096;

// Cuts off the zeros that a power cut leaves at the end of a file whose size was on the disk before
// its bytes; what is left of a torn line gets an end.
bool cutZeros(QFile &file)
{
    const qint64 size = file.size();
    qint64 end = size;
    char last = 0;
    while (end > 0 && size - end < mostZeros && pread(file.handle(), &last, 1, end - 1) == 1
           && last == 0)
        --end;
    if (end == size)
        return true;
    return file.resize(end) && (end == 0 || last == '\n' || file.write("\n") == 1);
}

} // namespace

namespace regularfile
{

bool open(QFile &file, QIODevice::OpenMode mode)
{
    constexpr mode_t permissions = 0666; // less the process's mask
    const int writing = mode & QIODevice::ReadOnly ? O_RDWR | O_CREAT : O_WRONLY | O_CREAT;
    const int access = mode & QIODevice::WriteOnly ? writing : O_RDONLY;
    const int place = mode & QIODevice::Append ? O_APPEND : 0;
    const int descriptor = ::open(QFile::encodeName(file.fileName()).constData(),
                                  access | place | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, permissions);
    if (descriptor < 0)
        return false;
    struct stat status = {};
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)
        && file.open(descriptor, mode, QFileDevice::AutoCloseHandle))
        return true;
    close(descriptor);
    return false;
}

bool append(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    const bool isNew = !file.exists();
    if (!open(file, QIODevice::ReadWrite | QIODevice::Append | QIODevice::Unbuffered)
        || !cutZeros(file))
        return false;
    const qint64 written = file.write(bytes);
    if (written == bytes.size()) {
        // The bytes start for the disk and nobody waits for them. Left to the system they take half
        // a minute, and the file's size only as long as it takes the store to be synced.
        sync_file_range(file.handle(), 0, 0, SYNC_FILE_RANGE_WRITE);
        return true;
    }
    if (written > 0)
        file.resize(file.size() - written);
    if (isNew) // what a link leads to, not the link
        unlink(QFile::encodeName(QFileInfo(path).canonicalFilePath()).constData());
    return false;
}

bool replace(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!open(file, QIODevice::WriteOnly | QIODevice::Unbuffered))
        return false;
    // First what needs more room than the file has, so that a full disk is known in time.
    const qint64 room = file.size();
    const QByteArray tail = bytes.mid(int(qMin<qint64>(room, bytes.size())));
    if (!tail.isEmpty() && !(file.seek(room) && file.write(tail) == tail.size())) {
        file.resize(room);
        return false;
    }
    const QByteArray head = bytes.chopped(tail.size());
    return file.seek(0) && file.write(head) == head.size() && file.resize(bytes.size());
}

} // namespace regularfile
