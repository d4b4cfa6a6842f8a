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

// Appends the bytes; false if that fails. What the disk has no room for leaves no trace: no torn
// line to which the next would be glued, no new and empty file. Zeros at the file's end, which a
// power cut leaves in place of what was not written yet, are cut off before.
bool append(const QString &path, const QByteArray &bytes);

// Puts the bytes in the place of the file's content, in the file as it stands: its owner, its
// links and who has it open stay. False if that fails; on a full disk the old content stays.
bool replace(const QString &path, const QByteArray &bytes);

} // namespace regularfile
