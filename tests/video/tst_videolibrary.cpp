// SPDX-License-Identifier: LicenseRef-KT6120

// The facade and what stands behind it.

#include "capture.h"
#include "testsupport.h"
#include "videoCapture.h"
#include "videolibrary.h"

#include <stdexcept>
#include <thread>

using testsupport::OutputCapture;

class tst_videolibrary : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        qputenv("OPENCV_VIDEOIO_PRIORITY_GPHOTO2", "0"); // not a desk's photo cameras
        testsupport::freshWorld();
    }

    void facadesShareOneCapture()
    {
        OutputCapture output;
        VideoLibrary first;
        capture *const shared = capturePipeline;
        {
            VideoLibrary second;
            QCOMPARE(capturePipeline, shared);
            second.startVideo();
            second.startStreaming(QString::fromLatin1("127.0.0.1\0 and more", 18), QString("5004"));
            QVERIFY(output.text().endsWith("# Started Video Stream\n"));
        }
        TRY_VERIFY(output.text().contains("unref pipeline\n"));
        TRY_VERIFY(output.text().contains("unref pipeline stream\n"));

        // A failed start is the caller's to handle.
        QVERIFY_EXCEPTION_THROWN(first.startStreaming(std::string("127.0.0.1"), std::string("x")),
                                 std::runtime_error);
        first.startStreaming(std::string("127.0.0.1"), std::string("5004"));
        QVERIFY(output.text().endsWith("# Started Video Stream\n"));
    }

    void sleepyTimeRunsTheShutdownScript()
    {
        VideoLibrary video;
        video.sleepyTime();
        QCOMPARE(recorders::calls(), QStringList("KT6120_shutdown.sh"));
    }

    void saysSoWhenNobodyServesGLib()
    {
        const testsupport::LogCapture log;
        VideoLibrary served;
        QCOMPARE(log.texts(QtWarningMsg), QStringList());
        std::thread([] { VideoLibrary unserved; }).join(); // a thread without an event loop
        QCOMPARE(log.texts(QtWarningMsg).size(), 1);
    }

    // Both pipelines are offered the frames, and idle, take none.
    void grabsUntilTheCameraIsLost()
    {
        struct Inside : GStreamerPipeline {
            static std::mutex GStreamerPipeline::*place() { return &Inside::lock; }
        };
        testsupport::writeFile("/run/bench/camera", "ok");
        OutputCapture output;
        capture camera;
        std::thread grabbing([&] { camera.startCapture(); });
        for (GStreamerPipeline *pipeline :
             {static_cast<GStreamerPipeline *>(&camera.palPipeline),
              static_cast<GStreamerPipeline *>(&camera.streamPipeline)}) {
            const std::lock_guard<std::mutex> busy(pipeline->*Inside::place());
            output.take();
            TRY_VERIFY(output.text().contains("Wait for record lock timed out\n"));
        }
        testsupport::writeFile("/run/bench/camera", "lost");
        grabbing.join();
        QCOMPARE(camera.palPipeline.getPosition(), std::uint64_t(0));
        QVERIFY(output.text().endsWith("Cannot read frame from video\n"));
    }
};

QTEST_GUILESS_MAIN(tst_videolibrary)
#include "tst_videolibrary.moc"
