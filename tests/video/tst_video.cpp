// SPDX-License-Identifier: LicenseRef-KT6120

// The pipelines, their reports, the facade over them and the capture behind it.

#include "capture.h"
#include "gstreamerpalpipeline.h"
#include "gstreamerstreampipeline.h"
#include "testsupport.h"
#include "videoCapture.h"
#include "videolibrary.h"

#include <QUdpSocket>

#include <stdexcept>
#include <thread>

using testsupport::OutputCapture;

namespace
{

// Notes every report that it gets.
struct NotingHandler : VideoCaptureStatusHandler, VideoPlaybackStatusHandler {
    void videoCaptureErrorHandler(bool flag, std::string text) override
    {
        notes << QString("error %1 %2").arg(flag).arg(text.c_str());
    }
    void jpegCompleteHandler(int number) override { notes << QString("jpeg %1").arg(number); }
    void jpegErrorHandler(int number, std::string text) override
    {
        notes << QString("jpeg error %1 %2").arg(number).arg(text.c_str());
    }
    void videoRecordingCompleteHandler() override { notes << "recording complete"; }
    void videoPlaybackErrorHandler(std::string text) override { notes << text.c_str(); }
    void videoPlaybackPausedHandler() override { notes << "paused"; }
    void videoPlaybackRunningHandler() override { notes << "running"; }
    void videoShutdownCompleteHandler() override { notes << "shutdown complete"; }
    void cameraDetachedHandler() override { notes << "detached"; }
    void cameraAttachedHandler() override { notes << "attached"; }

    QStringList notes;
};

// The two pipelines with access to their internals.
struct Pal : GStreamerPALPipeline {
    using GStreamerPALPipeline::flushPath, GStreamerPipeline::pipeline, GStreamerPipeline::start;
    using GStreamerPALPipeline::GStreamerPALPipeline;
};

struct Stream : GstreamerStreamPipeline {
    using GStreamerPipeline::pipeline;
    using GstreamerStreamPipeline::GstreamerStreamPipeline;
};

} // namespace

class tst_video : public QObject
{
    Q_OBJECT

    static void runEndsIdle(const QString &standIn, const QByteArray &fault, bool atStart,
                            bool stopped, const QString &reported)
    {
        QUdpSocket receiver;
        QVERIFY(receiver.bind(QHostAddress::LocalHost, 8083));
        const auto waitForPicture = [&receiver] {
            while (receiver.hasPendingDatagrams())
                receiver.readDatagram(nullptr, 0);
            TRY_VERIFY(receiver.hasPendingDatagrams());
        };
        NotingHandler handler;
        GStreamerPALPipeline pal(&handler);
        GstreamerStreamPipeline stream(&handler);
        OutputCapture errors(STDERR_FILENO);
        OutputCapture output;
        for (const bool local : {true, false}) {
            const auto start = [&] {
                local ? pal.startVideo() : stream.startStreaming("127.0.0.1", "8083");
            };
            const auto stop = [&] { local ? pal.stopVideo() : stream.stopStreaming(); };
            handler.notes.clear();
            testsupport::writeFile("/run/bench/" + standIn, atStart ? fault : "ok");
            stop(); // nothing runs
            QVERIFY(!output.text().contains("# Stopped"));
            start();
            start(); // it runs
            if (!atStart)
                waitForPicture();
            testsupport::writeFile("/run/bench/" + standIn, fault);
            if (stopped)
                stop();
            TRY_VERIFY(output.text().contains("unref pipeline"));
            if (!reported.isEmpty())
                QCOMPARE(handler.notes.value(0), reported);
            QCOMPARE(handler.notes.count("recording complete"), int(local));
            QCOMPARE(output.take().count(local ? "Started" : "# Started"), 1);

            testsupport::writeFile("/run/bench/" + standIn, "ok");
            start();
            waitForPicture();
            stop();
            TRY_VERIFY(output.text().contains("unref pipeline"));
            output.take();
        }
        QVERIFY(errors.text().contains("Open for flush\n"));
    }

private slots:
    void initTestCase()
    {
        qputenv("OPENCV_VIDEOIO_PRIORITY_GPHOTO2", "0"); // not a desk's photo cameras
        testsupport::freshWorld();
    }

    // A run ends when it is stopped or by an error, which is reported with the element's own text;
    // it leaves the pipeline idle: it runs again.
    void runsEndIdle()
    {
        const QString noDevice = "error 0 Cannot identify device '/dev/video0'.";
        const QString gone = "error 0 Could not read from resource.";
        const QString encoder = "error 0 Could not encode stream.";
        // stand-in, its fault, whether from the start, whether stopped, the report
        const std::tuple<QString, QByteArray, bool, bool, QString> rows[] = {
            {"camera", "ok", false, true, {}},
            {"camera", "ok", true, true, {}},
            {"camera", "missing", true, false, noDevice},
            {"camera", "missing", true, true, noDevice},
            {"camera", "lost", false, false, gone},
            {"camera", "lost", false, true, {}}, // reported or not
            {"encoder", "fails", true, false, encoder},
            {"encoder", "fails", false, false, encoder},
        };
        for (const auto &[standIn, fault, atStart, stopped, reported] : rows)
            runEndsIdle(standIn, fault, atStart, stopped, reported);
    }

    // A start is refused until the stopped run's end is reported. The destructor stops again.
    void endOfStreamThatNeverComes()
    {
        NotingHandler handler;
        OutputCapture output;
        {
            Pal pal(&handler);
            pal.start("videotestsrc is-live=true name=v4lsrc ! fakesink async=false "
                      "videotestsrc is-live=true ! fakesink async=false");
            pal.stopVideo();
            pal.startVideo();
        }
        QVERIFY(output.text().endsWith("Starting PAL Video\n# Stopping PAL Video\n"));
    }

    void lateMessageDoesNotTouchTheNextRun()
    {
        NotingHandler handler;
        Pal pal(&handler);
        OutputCapture errors(STDERR_FILENO);
        OutputCapture output;
        pal.flushPath = "/run/bench/camera";
        pal.startVideo();
        gboolean syncs = TRUE; // it would delay the picture
        GValue sink = G_VALUE_INIT;
        g_autoptr(GstIterator) sinks = gst_bin_iterate_sinks(GST_BIN(pal.pipeline.get()));
        QCOMPARE(gst_iterator_next(sinks, &sink), GST_ITERATOR_OK);
        g_object_get(g_value_get_object(&sink), "sync", &syncs, nullptr);
        g_value_unset(&sink);
        QVERIFY(!syncs);
        g_autoptr(GstBus) old = gst_element_get_bus(pal.pipeline.get());
        pal.stopVideo();
        QVERIFY(output.text().endsWith("\nalsa EOS\nunref src\n# Stopped PAL Video\n"));
        TRY_VERIFY(output.text().endsWith("Got gstreamer event: eos\nunref pipeline\n"));
        QCOMPARE(errors.text(), QByteArray()); // there was a file to flush
        pal.startVideo();
        output.take();
        gst_bus_set_flushing(old, FALSE);
        gst_bus_post(old, gst_message_new_eos(nullptr));
        TRY_VERIFY(output.text().contains("state-changed")); // the new run's
        QVERIFY(!output.text().contains("eos") && pal.pipeline);
    }

    // Everything created for a run is released with the pipeline or, while it runs, with its owner.
    void roundsLeaveNothingBehind()
    {
        int alive = 0;
        NotingHandler handler;
        OutputCapture output;
        for (int round = 0; round < 9; ++round) {
            Stream stream(&handler);
            stream.startStreaming("127.0.0.1", "5004");
            ++alive;
            const auto gone = [](gpointer count, GObject *) { --*static_cast<int *>(count); };
            g_object_weak_ref(G_OBJECT(stream.pipeline.get()), gone, &alive);
            const GstElementPointer encoder(
                gst_bin_get_by_name(GST_BIN(stream.pipeline.get()), "omxh264enc"));
            g_autoptr(GstCaps) caps = nullptr;
            g_object_get(encoder.get(), "caps", &caps, nullptr);
            g_autofree char *text = gst_caps_to_string(caps);
            QCOMPARE(text, "video/x-h264, profile=(string)baseline, level=(string)3");
            if (round % 3 == 0)
                continue; // still running
            if (round % 3 == 1)
                stream.stopStreaming();
            else
                gst_element_post_message(stream.pipeline.get(), gst_message_new_eos(nullptr));
            TRY_VERIFY(!stream.pipeline);
        }
        TRY_COMPARE(alive, 0);
        QVERIFY(output.text().contains("\nSTREAM:Got gstreamer event: eos\n"));
        QCOMPARE(output.text().count("unref src stream\n"), 6); // its own stop, or the destructor's
    }

    // Once for each observer, and for one of two threads at a time.
    void everyReportPassesThroughAChain()
    {
        NotingHandler listener;
        CascadedCaptureStatusHandler outer, inner;
        outer.registerObserver(&inner);
        inner.registerObserver(&listener);
        inner.registerObserver(&listener);
        outer.videoCaptureErrorHandler(false, "gone");
        outer.jpegErrorHandler(8, "bad");
        outer.videoRecordingCompleteHandler();
        outer.videoShutdownCompleteHandler();
        outer.cameraDetachedHandler();
        outer.cameraAttachedHandler();
        QCOMPARE(listener.notes,
                 QStringList({"error 0 gone", "jpeg error 8 bad", "recording complete",
                              "shutdown complete", "detached", "attached"}));
        listener.notes.clear();
        CascadedPlaybackStatusHandler playback;
        playback.registerObserver(&listener);
        playback.videoPlaybackErrorHandler("gone");
        playback.videoPlaybackPausedHandler();
        playback.videoPlaybackRunningHandler();
        playback.videoShutdownCompleteHandler();
        QCOMPARE(listener.notes, QStringList({"gone", "paused", "running", "shutdown complete"}));
        listener.notes.clear();
        const auto report = [&outer](int number) {
            for (int round = 0; round < 1000; ++round)
                outer.jpegCompleteHandler(number);
        };
        std::thread other(report, 1);
        report(2);
        other.join();
        outer.removeObserver(&inner);
        report(3);
        QCOMPARE(listener.notes.size(), 2000);
    }

    // Both pipelines are offered the frames, and idle, take none.
    void grabsUntilTheCameraIsLost()
    {
        struct Inside : GStreamerPipeline {
            static std::mutex GStreamerPipeline::*place() { return &Inside::lock; }
        };
        const QByteArray busyText = "Wait for record lock timed out\n";
        testsupport::writeFile("/run/bench/camera", "ok");
        const testsupport::LogCapture log;
        OutputCapture output;
        QByteArray printed;
        capture camera;
        std::thread grabbing([&] { camera.startCapture(); });
        GStreamerPipeline *const both[] = {&camera.palPipeline, &camera.streamPipeline};
        for (GStreamerPipeline *pipeline : both) {
            const std::lock_guard<std::mutex> busy(pipeline->*Inside::place());
            printed += output.take();
            TRY_VERIFY(output.text().contains(busyText));
        }
        testsupport::writeFile("/run/bench/camera", "lost");
        grabbing.join();
        QCOMPARE(camera.palPipeline.getPosition(), std::uint64_t(0));
        printed += output.take();
        QCOMPARE(printed.replace(busyText, ""), "capture openCannot read frame from video\n");

        testsupport::writeFile("/run/bench/camera", "missing");
        camera.startCapture();
        QCOMPARE(output.text(),
                 "Could not open\ncapture openerror\nCannot read frame from video\n");
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

        first.sleepyTime();
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
};

QTEST_GUILESS_MAIN(tst_video)
#include "tst_video.moc"
