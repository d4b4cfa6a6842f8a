// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

// The unit's plain files, written and read so that nothing found in a file's place can hold the
// program up: a folder, a named pipe or a device counts as a file that cannot be opened.
namespace regularfile
{

// Opens as QFile::open() does, but never waits, truncates nothing, and takes a regular file only
// (or a link that leads to one). A missing file is made if the mode is one of writing.
bool open(QFile &file, QIODevice::OpenMode mode);

// Appends lines; false if that fails. What the disk has no room for leaves no trace: no torn line,
// no new and empty file. What a power cut left at the file's end is mended before: zeros in place
// of what was not written yet are cut off, a torn line gets its end.
bool append(const QString &path, const QByteArray &bytes);

// Starts what was appended for the disk; nobody waits for it. Left to the system it takes half a
// minute, and the file's size only as long as it takes the store to be synced.
void startWriting(const QString &path);

// Puts the bytes in the place of the file's content, in the file as it stands: its owner, its
// links and who has it open stay. False if that fails; on a full disk the old content stays.
bool replace(const QString &path, const QByteArray &bytes);

} // namespace regularfile
