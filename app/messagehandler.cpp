// SPDX-License-Identifier: LicenseRef-KT6120
#include "messagehandler.h"

#include "paths.h"
#include "regularfile.h"
#include "timestamp.h"

#include <QMutex>

#include <cstdio>

namespace
{

QMutex mutex;

void printLine(const QByteArray &text)
{
    fwrite(text.constData(), 1, size_t(text.size()), stdout);
    fputc('\n', stdout);
    fflush(stdout); // block-buffered on a pipe, but followed live
}

} // namespace

void MessageHandler(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    const QMutexLocker locker(&mutex);
    if (type == QtDebugMsg) {
        printLine(message.toLocal8Bit());
        return;
    }
    const QString prefix = QString("%1,%2,").arg(timestamp::now()).arg(int(type));
    if (!regularfile::append(paths::programLog, (prefix + message + '\n').toUtf8()))
        printLine("Error Creating File");
}
