// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QMessageLogContext>
#include <QString>

// The program's Qt message handler. Prints debug text to standard output; appends any other message
// to the program log (paths::programLog) as a line "dd-MM-yyyy HH:mm:ss,TYPE,TEXT", where TYPE is
// Qt's number: 1 warning, 2 critical, 4 info. Opens the file for each line, so that it can be
// rotated at any time. If a line cannot be written, it is lost, and "Error Creating File" is
// printed to standard output. Thread-safe.
void MessageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message);
