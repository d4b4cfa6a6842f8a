// SPDX-License-Identifier: LicenseRef-KT6120
#include "error_handler.h"
#include "videotestsupport.h"

#include <thread>
#include <vector>

class tst_error_handler : public QObject
{
    Q_OBJECT

private slots:
    void everyReportPassesThroughAChain()
    {
        CascadedCaptureStatusHandler outer, inner;
        NotingHandler listener;
        outer.registerObserver(&inner);
        inner.registerObserver(&listener);
        inner.registerObserver(&listener); // is told once all the same
        outer.videoCaptureErrorHandler(false, "gone");
        outer.jpegCompleteHandler(7);
        outer.jpegErrorHandler(8, "bad");
        outer.videoRecordingCompleteHandler();
        outer.videoShutdownCompleteHandler();
        outer.cameraDetachedHandler();
        outer.cameraAttachedHandler();
        outer.removeObserver(&inner);
        outer.cameraAttachedHandler();
        QCOMPARE(listener.notes,
                 QStringList({"error 0 gone", "jpeg 7", "jpeg error 8 bad", "recording complete",
                              "shutdown complete", "detached", "attached"}));
    }

    // Whoever reports, a report is whole before the next begins.
    void reportsOfTwoThreadsNeverInterleave()
    {
        struct Twice : NotingHandler {
            void jpegCompleteHandler(int number) override
            {
                numbers.push_back(number);
                std::this_thread::yield(); // the other's turn, if it may
                numbers.push_back(number);
            }
            std::vector<int> numbers; // guarded by nothing but the fan-out
        } observer;
        CascadedCaptureStatusHandler fanOut;
        fanOut.registerObserver(&observer);
        const auto report = [&](int number) {
            for (int round = 0; round < 1000; ++round)
                fanOut.jpegCompleteHandler(number);
        };
        std::thread other(report, 1);
        report(2);
        other.join();
        QCOMPARE(observer.numbers.size(), size_t(4000));
        for (size_t i = 0; i < observer.numbers.size(); i += 2)
            QCOMPARE(observer.numbers[i], observer.numbers[i + 1]);
    }
};

QTEST_GUILESS_MAIN(tst_error_handler)
#include "tst_error_handler.moc"
