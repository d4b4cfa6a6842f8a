// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

// Reads and writes files without ever blocking on what stands in their place: a directory, FIFO or
// device, or a symlink to one, is treated as a file that cannot be opened.
namespace safefile
{

// Like QFile::open(), but never blocks, never truncates, and opens regular files only. A mode that
// writes creates a missing file.
bool open(QFile &file, QIODevice::OpenMode mode);

// The end of a file, at most `most` bytes, from the beginning of a line on; empty if the file
// cannot be opened.
QByteArray readEnd(const QString &path, qint64 most);

// Appends lines. On failure, returns false and leaves neither a partial line nor a new, empty file.
// First repairs the end of the file after a power cut: removes zeros, completes a partial line.
bool append(const QString &path, const QByteArray &bytes);

// Starts the write-out of appended lines and does not wait for it. The kernel alone would write the
// data after half a minute, but the new size with the next sync of the store; a power cut between
// the two leaves zeros.
void startWriteOut(const QString &path);

// Replaces the file's content in place, which keeps its owner, links and open descriptors. Returns
// false on failure; on a full disk the old content remains.
bool overwrite(const QString &path, const QByteArray &bytes);

} // namespace safefile
