#include "error_handler.h"
#include "videotestsupport.h"

#include <atomic>
#include <future>
#include <memory>
#include <thread>

namespace
{

const QStringList everyReport{
    "error 0 gone",      "jpeg 7",   "jpeg error 8 bad", "recording complete",
    "shutdown complete", "detached", "attached"};

void reportEverything(VideoCaptureStatusHandler &handler)
{
    handler.videoCaptureErrorHandler(false, "gone");
    handler.jpegCompleteHandler(7);
    handler.jpegErrorHandler(8, "bad");
    handler.videoRecordingCompleteHandler();
    handler.videoShutdownCompleteHandler();
    handler.cameraDetachedHandler();
    handler.cameraAttachedHandler();
}

class NotingPlayer : public VideoPlaybackStatusHandler
{
public:
    void videoPlaybackErrorHandler(std::string text) override { notes << text.c_str(); }
    void videoPlaybackPausedHandler() override { notes << "paused"; }
    void videoPlaybackRunningHandler() override { notes << "running"; }
    void videoShutdownCompleteHandler() override { notes << "shutdown"; }
    QStringList notes;
};

} // namespace

class tst_error_handler : public QObject
{
    Q_OBJECT

private slots:
    void everyReportPassesThroughAChain()
    {
        CascadedCaptureStatusHandler outer;
        reportEverything(outer);
        NotingHandler listener;
        {
            CascadedCaptureStatusHandler inner;
            outer.registerObserver(&inner);
            inner.registerObserver(&listener);
            reportEverything(outer);
            outer.removeObserver(&inner);
        }
        QCOMPARE(*listener.notes, everyReport);

        CascadedPlaybackStatusHandler playback;
        NotingPlayer player;
        playback.registerObserver(&player);
        playback.videoPlaybackErrorHandler("stuck");
        playback.videoPlaybackPausedHandler();
        playback.videoPlaybackRunningHandler();
        playback.videoShutdownCompleteHandler();
        playback.removeObserver(&player);
        playback.videoPlaybackPausedHandler();
        QCOMPARE(player.notes, QStringList({"stuck", "paused", "running", "shutdown"}));
    }

    void observersAreToldOnceInOrderOfAddress()
    {
        QStringList notes;
        NotingHandler observers[] = {NotingHandler(&notes, "first "),
                                     NotingHandler(&notes, "second ")};
        CascadedCaptureStatusHandler fanOut;
        for (const int index : {1, 0, 1, 0})
            fanOut.registerObserver(&observers[index]);
        fanOut.jpegErrorHandler(1, "text");
        QCOMPARE(notes, QStringList({"first jpeg error 1 text", "second jpeg error 1 text"}));

        notes.clear();
        fanOut.removeObserver(&observers[0]);
        fanOut.removeObserver(&observers[0]);
        fanOut.cameraAttachedHandler();
        QCOMPARE(notes, QStringList({"second attached"}));
    }

    void reportsOfTwoThreadsNeverInterleave()
    {
        QStringList notes; // guarded by nothing but the fan-out
        NotingHandler observers[] = {NotingHandler(&notes, "0 "), NotingHandler(&notes, "1 ")};
        NotingHandler passing;
        CascadedCaptureStatusHandler fanOut;
        fanOut.registerObserver(&observers[0]);
        fanOut.registerObserver(&observers[1]);

        constexpr int rounds = 1000;
        const auto report = [&](int number) {
            for (int round = 0; round < rounds; ++round)
                fanOut.jpegCompleteHandler(number);
        };
        std::thread one(report, 1);
        std::thread two(report, 2);
        for (int round = 0; round < rounds; ++round) {
            fanOut.registerObserver(&passing);
            fanOut.removeObserver(&passing);
        }
        one.join();
        two.join();
        QCOMPARE(notes.size(), 4 * rounds);
        for (int i = 0; i < notes.size(); i += 2) {
            QVERIFY(notes[i].startsWith("0 "));
            QCOMPARE(notes[i + 1], "1 " + notes[i].mid(2));
        }
    }

    void removalWaitsForTheReportInProgress()
    {
        struct Slow : NotingHandler {
            std::promise<void> entered, leave;
            std::atomic<bool> left{false};
            void cameraDetachedHandler() override
            {
                entered.set_value();
                leave.get_future().wait();
                left = true;
            }
        } observer;
        CascadedCaptureStatusHandler fanOut;
        fanOut.registerObserver(&observer);
        std::thread reporting([&] { fanOut.cameraDetachedHandler(); });
        observer.entered.get_future().wait();
        std::thread releasing([&] {
            std::this_thread::yield();
            observer.leave.set_value();
        });
        fanOut.removeObserver(&observer);
        QVERIFY(observer.left);
        reporting.join();
        releasing.join();
    }
};

QTEST_GUILESS_MAIN(tst_error_handler)
#include "tst_error_handler.moc"
