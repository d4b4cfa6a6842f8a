// SPDX-License-Identifier: LicenseRef-KT6120

// Log sink, connections and watchdog. A scenario plays fatal signals.

#include "messagehandler.h"
#include "watchdog.h"
#include "wiring.h"

#include "commsexternal.h"
#include "commsinternal.h"
#include "eventhandler.h"
#include "videolibrary.h"

#include "paths.h"
#include "testsupport.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <sys/socket.h>
#include <sys/un.h>

using testsupport::OutputCapture;
using testsupport::readFile;

namespace
{

std::atomic<int> writes = 0;

// Logs through the sink; QtTest's own handler is put back afterwards.
void log(const std::function<void()> &statements)
{
    const auto before = qInstallMessageHandler(MessageHandler);
    statements();
    qInstallMessageHandler(before);
}

} // namespace

// Replaces the C library's.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name) the C library's are reserved
extern "C" int sync_file_range(int, off64_t, off64_t, unsigned int)
{
    ++writes;
    return 0;
}

class tst_app : public QObject
{
    Q_OBJECT

private slots:
    void init() { testsupport::freshWorld(); }

    void eachMessageIsALine()
    {
        const OutputCapture printed;
        log([] {
            qWarning() << "Setting Lamp Brightness to " << 15 << "%";
            qDebug() << "chatter";
        });
        const QString line = readFile(paths::programLog);
        const auto time = QDateTime::fromString(line.left(19), "dd-MM-yyyy HH:mm:ss");
        QVERIFY(qAbs(time.secsTo(QDateTime::currentDateTime())) < 60);
        QCOMPARE(line.mid(19), QString(",1,Setting Lamp Brightness to  15 %\n"));
        QCOMPARE(printed.text(), QByteArray("chatter\n"));
    }

    void zerosOfAPowerCutAreRemoved()
    {
        const std::pair<QByteArray, QByteArray> rows[] = {
            {QByteArray("one\ntw\0", 7), "one\ntw\n"},
            {QByteArray(4096, '\0'), ""},
            {"one\n" + QByteArray(10000, '\0'), "one\n"},
        };
        for (const auto &[left, kept] : rows) {
            testsupport::writeFile(paths::programLog, left);
            log([] { qInfo() << "Stream Stopped"; });
            const QByteArray lines = readFile(paths::programLog);
            QCOMPARE(lines.left(kept.size()), kept);
            QCOMPARE(lines.mid(kept.size() + 19), QByteArray(",4,Stream Stopped\n"));
        }
    }

    // One write-out a second, and the last line does not wait for another one.
    void linesStartForTheDiskOnceASecond()
    {
        QElapsedTimer passed;
        passed.start();
        const int before = writes;
        log([before] {
            while (writes < before + 2)
                qInfo() << "Stream Stopped";
        });
        QVERIFY(passed.elapsed() >= 1000);
        const int soFar = writes;
        log([] { qInfo() << "Stream Stopped"; });
        TRY_VERIFY(writes > soFar);
    }

    void allThirteenConnectionsAreMade()
    {
        eventHandler events;
        commsInternal mcu;
        commsExternal app;
        VideoLibrary video;
        const auto made = connectComponents({&events, &mcu, &app, &video});
        QCOMPARE(std::count_if(made.begin(), made.end(), [](const auto &one) { return bool(one); }),
                 13);
        QVERIFY(QMetaType::type("EVENT_TYPE_t") != 0 && QMetaType::type("SOURCE_TYPE_t") != 0);
    }

    // Notifications come with the event loop's first iteration, then every tenth of the period as
    // long as the loop runs.
    void theServiceManagerHearsOfTheLoop()
    {
        const int manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        const sockaddr_un address{AF_UNIX, "/run/notify"};
        QCOMPARE(bind(manager, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        qputenv("NOTIFY_SOCKET", "/run/notify");
        qputenv("WATCHDOG_USEC", "300000");
        QByteArray reports;
        const auto heard = [&] { // all so far
            char report[64];
            for (ssize_t size = 0; (size = recv(manager, report, sizeof report, 0)) > 0;)
                reports += QByteArray(report, int(size)) + ' ';
            return reports;
        };
        commsExternal app;
        Watchdog watchdog(app);
        QCOMPARE(heard(), QByteArray());
        TRY_VERIFY(heard().startsWith("READY=1 WATCHDOG=1 WATCHDOG=1 "));
        const QByteArray before = heard();
        QThread::msleep(600); // an iteration that hangs
        QCOMPARE(heard(), before);
        emit app.commsExternalEvent(EVENT_LampUp, SOURCE_APP, nullptr); // of many in that iteration
        QCOMPARE(heard(), before + "WATCHDOG=1 ");
        TRY_VERIFY(heard().size() > before.size() + 11);
    }
};

QTEST_GUILESS_MAIN(tst_app)
#include "tst_app.moc"
