#include "capture.h"
#include "recorders.h"
#include "videoCapture.h"
#include "videolibrary.h"
#include "videotestsupport.h"

#include <atomic>
#include <ctime>
#include <stdexcept>
#include <sys/syscall.h>
#include <thread>

// The monotonic clock of this process, which a test can put forward.
static std::atomic<time_t> secondsForward{0};

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept
{
    const auto result = int(syscall(SYS_clock_gettime, clock, now));
    if (clock == CLOCK_MONOTONIC)
        now->tv_sec += secondsForward;
    return result;
}

class tst_videolibrary : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { useStandIns(); }
    void init() { testsupport::freshWorld(); }

    void facadesShareOneCapture()
    {
        OutputCapture errors(STDERR_FILENO);
        OutputCapture output;
        VideoLibrary first;
        capture *const shared = capturePipeline;
        {
            VideoLibrary second;
            QCOMPARE(capturePipeline, shared);
            first.startVideo();
            second.startVideo();
            QCOMPARE(output.take(), QByteArray("Starting PAL Video\nStarted PAL Video\n"
                                               "Starting PAL Video\n"));
            second.startStreaming(QString::fromLatin1("127.0.0.1\0 and more", 18), QString("5004"));
            QVERIFY(output.take().endsWith("# Started Video Stream\n"));
        }
        QCOMPARE(output.text(), QByteArray("# Stopping PAL Video\nalsa EOS\nunref src\n"
                                           "# Stopped PAL Video\nunref src stream\n"));
        QTRY_VERIFY(output.text().contains("unref pipeline\n"));
        QTRY_VERIFY(output.text().contains("unref pipeline stream\n"));

        // A failed start is the caller's to handle.
        QVERIFY_EXCEPTION_THROWN(first.startStreaming(std::string("127.0.0.1"), std::string("x")),
                                 std::runtime_error);
    }

    void gpioScriptRunsOnceAfterTwentySeconds()
    {
        recorders::install("/home/pi/KT6120/bin/KT6120_gpio_write.sh");
        VideoLibrary video;
        video.initCapture();
        secondsForward += 19;
        QTest::qWait(0);
        QCOMPARE(recorders::calls().size(), 0);
        secondsForward += 1;
        QTRY_COMPARE(testsupport::calls(), QStringList("KT6120_gpio_write.sh 19 1"));
        QCOMPARE(recorders::calls()[0].name, QString("KT6120_gpio_write.sh"));
        QCOMPARE(recorders::calls()[0].arguments, QStringList({"19", "1"}));
        secondsForward += 60;
        QTest::qWait(0);
        QCOMPARE(recorders::calls().size(), 1);
    }

    void sleepyTimeRunsTheShutdownScript()
    {
        VideoLibrary video;
        video.sleepyTime(); // a script that is missing leaves no trace
        recorders::install("/home/pi/KT6120/bin/KT6120_shutdown.sh");
        video.sleepyTime();
        QCOMPARE(testsupport::calls(), QStringList("KT6120_shutdown.sh"));
    }

    void saysSoWhenNobodyServesGLib()
    {
        const testsupport::LogCapture log;
        VideoLibrary served;
        QCOMPARE(log.texts(QtWarningMsg), QStringList());
        std::thread([] { VideoLibrary unserved; }).join(); // a thread without an event loop
        QCOMPARE(log.texts(QtWarningMsg),
                 QStringList({"The event loop does not serve GLib: no video pipeline will ever "
                              "end"}));
    }
};

QTEST_GUILESS_MAIN(tst_videolibrary)
#include "tst_videolibrary.moc"
