// SPDX-License-Identifier: LicenseRef-KT6120
#include "regularfile.h"

#include <QFileInfo>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace regularfile
{

bool open(QFile &file, QIODevice::OpenMode mode)
{
    constexpr mode_t permissions = 0666; // less the process's mask
    const int access = mode & QIODevice::WriteOnly ? O_WRONLY | O_CREAT : O_RDONLY;
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
    if (!open(file, QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
        return false;
    const qint64 written = file.write(bytes);
    if (written == bytes.size())
        return true;
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
