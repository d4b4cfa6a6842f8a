// SPDX-License-Identifier: LicenseRef-KT6120
#include "safefile.h"

#include <QFileInfo>

#include <array>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

static_assert(sizeof(off_t) == 8, "a file of more than 2 GiB must open");

// Truncates the zeros at the end of a file, which a power cut leaves if the file's size reached the
// disk before its data. Sets last to the byte before them, or to a line end if there is none.
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

namespace safefile
{

bool open(QFile &file, QIODevice::OpenMode mode)
{
    constexpr mode_t permissions = 0666; // minus the umask
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

QByteArray readEnd(const QString &path, qint64 most)
{
    QFile file(path);
    if (most <= 0 || !open(file, QIODevice::ReadOnly))
        return {};
    const bool isWhole = file.size() <= most;
    file.seek(isWhole ? 0 : file.size() - most);
    const QByteArray bytes = file.read(most);
    return isWhole ? bytes : bytes.mid(bytes.indexOf('\n') + 1);
}

bool append(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    const bool isNew = !file.exists();
    char last = 0;
    if (!open(file, QIODevice::ReadWrite | QIODevice::Append | QIODevice::Unbuffered)
        || !cutZeros(file, last))
        return false;
    const QByteArray text = last == '\n' ? bytes : '\n' + bytes;
    const qint64 written = file.write(text);
    if (written == text.size())
        return true;
    if (written > 0)
        file.resize(file.size() - written);
    if (isNew) // the target of a symlink, not the symlink
        unlink(QFile::encodeName(QFileInfo(path).canonicalFilePath()).constData());
    return false;
}

void startWriteOut(const QString &path)
{
    QFile file(path);
    if (open(file, QIODevice::ReadOnly))
        sync_file_range(file.handle(), 0, 0, SYNC_FILE_RANGE_WRITE);
}

bool overwrite(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!open(file, QIODevice::WriteOnly | QIODevice::Unbuffered))
        return false;
    // First write what lies beyond the old end, so that a full disk leaves the old content.
    const qint64 oldSize = file.size();
    const QByteArray tail = bytes.mid(int(qMin<qint64>(oldSize, bytes.size())));
    if (!tail.isEmpty() && !(file.seek(oldSize) && file.write(tail) == tail.size())) {
        file.resize(oldSize);
        return false;
    }
    const QByteArray head = bytes.chopped(tail.size());
    return file.seek(0) && file.write(head) == head.size() && file.resize(bytes.size());
}

} // namespace safefile
