// SPDX-License-Identifier: LicenseRef-KT6120
#include "error_handler.h"
#include "videotestsupport.h"

#include <thread>

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

    // Observers come in order of their addresses, and a report is whole before the next begins.
    void reportsOfTwoThreadsNeverInterleave()
    {
        struct Shared : NotingHandler {
            void jpegCompleteHandler(int number) override
            {
                *all << qMakePair(this, number);
                std::this_thread::yield(); // the other's turn, if it may
            }
            QList<QPair<Shared *, int>> *all = nullptr;
        } observers[2];
        QList<QPair<Shared *, int>> all; // guarded by nothing but the fan-out
        CascadedCaptureStatusHandler fanOut;
        for (const int index : {1, 0}) {
            observers[index].all = &all;
            fanOut.registerObserver(&observers[index]);
        }
        constexpr int rounds = 1000;
        const auto report = [&](int number) {
            for (int round = 0; round < rounds; ++round)
                fanOut.jpegCompleteHandler(number);
        };
        std::thread one(report, 1);
        std::thread two(report, 2);
        NotingHandler passing;
        for (int round = 0; round < rounds; ++round) {
            fanOut.registerObserver(&passing);
            fanOut.removeObserver(&passing);
        }
        one.join();
        two.join();
        QCOMPARE(all.size(), 4 * rounds);
        for (int i = 0; i < all.size(); i += 2) {
            QCOMPARE(all[i].first, &observers[0]);
            QCOMPARE(all[i + 1], qMakePair(&observers[1], all[i].second));
        }
    }
};

QTEST_GUILESS_MAIN(tst_error_handler)
#include "tst_error_handler.moc"
