// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QMessageLogContext>
#include <QString>

// Qt's message handler of the program. Debug text goes to standard output only; every other
// message becomes one line "dd-MM-yyyy HH:mm:ss,TYPE,TEXT" of the program log
// (paths::programLog), TYPE being Qt's number: 1 warning, 2 critical, 4 info. The file is
// opened and closed for each line, so that it can be rotated at any time. A line that cannot
// be written is lost, with "Error Creating File" on standard output. Any thread may call it.
void MessageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message);
