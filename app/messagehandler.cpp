// SPDX-License-Identifier: LicenseRef-KT6120
#include "messagehandler.h"

#include "paths.h"
#include "safefile.h"
#include "timestamp.h"

#include <QMutex>

#include <chrono>
#include <cstdio>
#include <pthread.h>
#include <semaphore.h>
#include <thread>

namespace
{

constexpr std::chrono::seconds writeInterval(1);

QMutex mutex;

void printLine(const QByteArray &text)
{
    fwrite(text.constData(), 1, size_t(text.size()), stdout);
    fputc('\n', stdout);
    fflush(stdout); // a pipe is block-buffered
}

sem_t unwrittenLines;

// Starts the write-out of the log once per second, so that all lines of a second cost one write to
// the card. Runs in a thread, because the event loop may block, and lines also arrive before and
// after it.
void *writeOutLoop(void *)
{
    for (;;) {
        while (sem_wait(&unwrittenLines) != 0) {
        }
        while (sem_trywait(&unwrittenLines) == 0) {
        }
        safefile::startWriteOut(paths::programLog);
        std::this_thread::sleep_for(writeInterval);
    }
}

// If the thread cannot be started, the kernel writes the lines later.
void scheduleWriteOut()
{
    static const bool started = [] {
        pthread_t thread{};
        return sem_init(&unwrittenLines, 0, 0) == 0
               && pthread_create(&thread, nullptr, writeOutLoop, nullptr) == 0;
    }();
    if (started)
        sem_post(&unwrittenLines);
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
    if (safefile::append(paths::programLog, (prefix + message + '\n').toUtf8()))
        scheduleWriteOut();
    else
        printLine("Error Creating File");
}
