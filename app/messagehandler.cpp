// SPDX-License-Identifier: LicenseRef-KT6120
#include "messagehandler.h"

#include "paths.h"

#include <QDateTime>
#include <QFile>
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
    QFile log(paths::programLog);
    if (!log.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text)) {
        printLine("Error Creating File");
        return;
    }
    const QString now = QDateTime::currentDateTime().toString("dd-MM-yyyy HH:mm:ss");
    log.write(QString("%1,%2,").arg(now).arg(int(type)).append(message).append('\n').toUtf8());
}
