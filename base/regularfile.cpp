// SPDX-License-Identifier: LicenseRef-KT6120
#include "regularfile.h"

#include <QFileInfo>

#include <array>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

static_assert(sizeof(off_t) == 8, "a file of more than 2 GiB must open");

// Cuts off the zeros that a power cut leaves at the end of a file whose size was on the disk before
// its bytes, however many, and tells what stands before them: the end of a line in an empty file.
bool cutZeros(QFile &file, char &last)
{
    const qint64 size = file.size();
    qint64 end = size;
    last = '\n';
    while (end > 0) {
        std::array<char, 4096> block{};
        const qint64 begin = (end - 1) / qint64(block.size()) * qint64(block.size());
        if (pread(file.handle(), block.data(), size_t(end - begin), begin) != end - begin)
            return false;
        while (end > begin && block.at(size_t(end - begin - 1)) == 0)
            --end;
        if (end > begin) {
            last = block.at(size_t(end - begin - 1));
            break;
        }
    }
    return end == size || file.resize(end);
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
    char last = 0;
    if (!open(file, QIODevice::ReadWrite | QIODevice::Append | QIODevice::Unbuffered)
        || !cutZeros(file, last))
        return false;
    const QByteArray whole = last == '\n' ? bytes : '\n' + bytes;
    const qint64 written = file.write(whole);
    if (written == whole.size())
        return true;
    if (written > 0)
        file.resize(file.size() - written);
    if (isNew) // what a link leads to, not the link
        unlink(QFile::encodeName(QFileInfo(path).canonicalFilePath()).constData());
    return false;
}

void startWriting(const QString &path)
{
    QFile file(path);
    if (open(file, QIODevice::ReadOnly))
        sync_file_range(file.handle(), 0, 0, SYNC_FILE_RANGE_WRITE);
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
