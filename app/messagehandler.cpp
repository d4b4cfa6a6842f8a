// SPDX-License-Identifier: LicenseRef-KT6120
#include "messagehandler.h"

#include "paths.h"
#include "regularfile.h"
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
    fflush(stdout); // block-buffered on a pipe, but followed live
}

sem_t lines; // one or more were written

// One write to the card takes what a second has brought, also while the event loop waits. A thread,
// since lines come from any and before, in and after the loop.
void *writeLines(void *)
{
    for (;;) {
        while (sem_wait(&lines) != 0) {
        }
        while (sem_trywait(&lines) == 0) {
        }
        regularfile::startWriting(paths::programLog);
        std::this_thread::sleep_for(writeInterval);
    }
}

// Without the thread, the system writes in its own time.
void startWriting()
{
    static const bool started = [] {
        pthread_t thread{};
        return sem_init(&lines, 0, 0) == 0
               && pthread_create(&thread, nullptr, writeLines, nullptr) == 0;
    }();
    if (started)
        sem_post(&lines);
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
    if (regularfile::append(paths::programLog, (prefix + message + '\n').toUtf8()))
        startWriting();
    else
        printLine("Error Creating File");
}
