// SPDX-License-Identifier: LicenseRef-KT6120
#include "files.h"

#include "world.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include <fcntl.h>
#include <stdexcept>
#include <sys/mount.h>
#include <unistd.h>

namespace
{

void require(bool done, const char *what, const QString &path)
{
    if (!done)
        throw std::runtime_error(std::string("cannot ") + what + ' ' + path.toStdString());
}

} // namespace

namespace files
{

void create(const QString &path, const QByteArray &content)
{
    QFile file(path);
    require(file.open(QIODevice::WriteOnly) && file.write(content) == content.size(), "write",
            path);
}

void overwrite(const QString &path, const QByteArray &content)
{
    // Cutting the file first would be a change of its own. What the old content has more
    // becomes blank lines behind the new one.
    const int file = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CLOEXEC);
    const int rest = int(QFileInfo(path).size() - content.size());
    const QByteArray whole = content + QByteArray(qMax(0, rest), '\n');
    const bool done = file >= 0 && ::write(file, whole.constData(), size_t(whole.size())) >= 0;
    ::close(file);
    require(done, "write into", path);
}

void replace(const QString &path, const QByteArray &content)
{
    const QString other = path + ".new";
    create(other, content);
    require(::rename(QFile::encodeName(other).constData(), QFile::encodeName(path).constData())
                == 0,
            "replace", path);
}

void link(const QString &target, const QString &path)
{
    require(QFile::link(target, path), "link", path);
}

void createFolder(const QString &path)
{
    require(QDir().mkpath(path), "make", path);
}

void remove(const QString &path)
{
    require(QFileInfo(path).isDir() ? QDir(path).removeRecursively() : QFile::remove(path),
            "remove", path);
}

QString ofCaller(const QString &path)
{
    const QDir caller(QFileInfo::exists(world::callerFolder) ? world::callerFolder : ".");
    return caller.absoluteFilePath(path);
}

void setReadOnly(const QString &path, bool readOnly)
{
    const QByteArray name = QFile::encodeName(path);
    const char *place = name.constData();
    if (!readOnly) {
        require(umount2(place, MNT_DETACH) == 0, "make writable", path);
        return;
    }
    require(mount(place, place, nullptr, MS_BIND, nullptr) == 0
                && mount(nullptr, place, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) == 0,
            "make read-only", path);
}

void setIniValue(const QString &path, const QString &key, const QByteArray &value)
{
    QSettings file(path, QSettings::IniFormat);
    file.setValue(key, QString::fromUtf8(value));
    file.sync();
    require(file.status() == QSettings::NoError, "write", path);
}

} // namespace files
