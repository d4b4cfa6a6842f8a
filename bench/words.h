// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QList>

// The text form of bench commands: words with blanks between them. A part in double quotes
// may hold blanks and the escapes \r \n \t \0 \" \\ and \xNN; outside quotes nothing is
// special.
namespace words
{

// Throws std::runtime_error on a quote that is not closed or an unknown escape.
QList<QByteArray> split(const QByteArray &line);

// Bytes as a person can read them: control bytes and bytes above ASCII as escapes.
QByteArray printable(const QByteArray &bytes);

} // namespace words
