// SPDX-License-Identifier: LicenseRef-KT6120
#include "observers.h"

#include "journal.h"
#include "world.h"

#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>

FileTail::FileTail(Journal &notes, Kind what, const QString &file,
                   QByteArray (*cleanLine)(QByteArray))
    : journal(notes), kind(what), path(file), clean(cleanLine), folder(QFileInfo(file).path())
{
    connect(&folder, &FolderWatch::changed, this, &FileTail::read);
    read();
}

void FileTail::read()
{
    QFile file(path);
    struct stat state {
    };
    if (!file.open(QIODevice::ReadOnly) || fstat(file.handle(), &state) != 0)
        return;
    if (state.st_ino != inode || state.st_size < position)
        position = 0;
    inode = state.st_ino;
    file.seek(position);
    for (;;) {
        const QByteArray line = file.readLine();
        if (!line.endsWith('\n'))
            return; // the rest of the line is still to come
        position += line.size();
        journal.note(kind, clean(line));
    }
}

StoreWatch::StoreWatch(Journal &notes) : journal(notes), folder(world::installFolder)
{
    connect(&folder, &FolderWatch::changed, this, &StoreWatch::read);
    read();
}

void StoreWatch::read()
{
    if (!QFile::exists(world::statusStore))
        return;
    // Read from the bytes themselves: a settings object on the file would write it back and
    // share its cache with every other one.
    QFile file(world::statusStore);
    if (!file.open(QIODevice::ReadOnly))
        return;
    QMap<QString, QString> now;
    QString group;
    for (const QByteArray &raw : file.readAll().split('\n')) {
        const QString line = QString::fromUtf8(raw.trimmed());
        const int equals = int(line.indexOf('='));
        if (line.startsWith('[') && line.endsWith(']'))
            group = line.mid(1, line.size() - 2) + '/';
        else if (equals > 0)
            now.insert(group + line.left(equals), line.mid(equals + 1));
    }
    for (auto key = now.cbegin(); key != now.cend(); ++key) {
        const QString old = values.value(key.key(), "-");
        if (old != key.value())
            journal.note(Kind::Store,
                         QString("%1: %2 -> %3\n").arg(key.key(), old, key.value()).toUtf8());
    }
    values = now;
}
