// SPDX-License-Identifier: LicenseRef-KT6120
#include "gstreamerpalpipeline.h"
#include "gstreamerstreampipeline.h"
#include "videotestsupport.h"

#include <QUdpSocket>

#include <thread>
#include <vector>

namespace
{

// The two real pipelines, with a look inside.
struct Pal : GStreamerPALPipeline {
    using GStreamerPALPipeline::flushPath, GStreamerPipeline::pipeline, GStreamerPipeline::start;
    using GStreamerPALPipeline::GStreamerPALPipeline;
};

struct Stream : GstreamerStreamPipeline {
    using GStreamerPipeline::pipeline;
    using GstreamerStreamPipeline::GstreamerStreamPipeline;
};

} // namespace

class tst_gstreamerpipeline : public QObject
{
    Q_OBJECT

    static void runEndsIdle(const QString &standIn, const QByteArray &fault, bool atStart,
                            bool stopped, const QString &told)
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
            setStandIn(standIn, atStart ? fault : "ok");
            stop(); // nothing runs
            QVERIFY(!output.text().contains("# Stopped"));
            start();
            start(); // it runs
            if (!atStart)
                waitForPicture();
            setStandIn(standIn, fault);
            if (stopped)
                stop();
            TRY_VERIFY(output.text().contains("unref pipeline"));
            if (!told.isEmpty())
                QCOMPARE(handler.notes.value(0), told);
            QCOMPARE(handler.notes.count("recording complete"), int(local));
            QCOMPARE(output.take().count(local ? "Started" : "# Started"), 1);

            setStandIn(standIn, "ok");
            start();
            waitForPicture();
            stop();
            TRY_VERIFY(output.text().contains("unref pipeline"));
            output.take();
        }
    }

private slots:
    void initTestCase() { useStandIns(); }

    // A run ends when it is told to or by a fault, which is told with the element's own text; it
    // leaves the pipeline idle: it runs again.
    void runsEndIdle()
    {
        const QString noDevice = "error 0 Cannot identify device '/dev/video0'.";
        const QString gone = "error 0 Could not read from resource.";
        const QString encoder = "error 0 Could not encode stream.";
        // stand-in, its fault, whether from the start, whether stopped, what is told
        const std::tuple<QString, QByteArray, bool, bool, QString> rows[] = {
            {"camera", "ok", false, true, {}},
            {"camera", "ok", true, true, {}},
            {"camera", "missing", true, false, noDevice},
            {"camera", "missing", true, true, noDevice},
            {"camera", "lost", false, false, gone},
            {"camera", "lost", false, true, {}}, // or told, or not
            {"encoder", "fails", true, false, encoder},
            {"encoder", "fails", false, false, encoder},
        };
        for (const auto &[standIn, fault, atStart, stopped, told] : rows)
            runEndsIdle(standIn, fault, atStart, stopped, told);
    }

    // Until its end is reported the pipeline stays in stopping, and refuses a start.
    void endOfStreamThatNeverComes()
    {
        NotingHandler handler;
        Pal pal(&handler);
        OutputCapture output;
        pal.start("videotestsrc is-live=true name=v4lsrc ! fakesink async=false "
                  "videotestsrc is-live=true ! fakesink async=false");
        pal.stopVideo();
        pal.startVideo();
        QVERIFY(output.text().endsWith("# Stopped PAL Video\nStarting PAL Video\n"));
    }

    void lateMessageDoesNotTouchTheNextRun()
    {
        NotingHandler handler;
        Pal pal(&handler);
        OutputCapture errors(STDERR_FILENO);
        OutputCapture output;
        pal.flushPath = "/run/bench/camera";
        pal.startVideo();
        GstBus *old = gst_element_get_bus(pal.pipeline.get());
        pal.stopVideo();
        TRY_VERIFY(output.text().endsWith("unref pipeline\n"));
        QCOMPARE(errors.text(), QByteArray()); // there was a file to flush
        pal.startVideo();
        output.take();
        gst_bus_set_flushing(old, FALSE);
        gst_bus_post(old, gst_message_new_eos(nullptr));
        TRY_VERIFY(output.text().contains("state-changed")); // the new run's
        QVERIFY(!output.text().contains("eos") && pal.pipeline);
        gst_object_unref(old);
    }

    // Everything made for a run is gone after it, with the pipeline or, running, with its owner.
    void roundsLeaveNothingBehind()
    {
        int alive = 0;
        NotingHandler handler;
        OutputCapture output;
        int files = 0;
        for (int round = 0; round < 9; ++round) {
            Stream stream(&handler);
            stream.startStreaming("127.0.0.1", "5004");
            ++alive;
            g_object_weak_ref(
                G_OBJECT(stream.pipeline.get()),
                [](gpointer count, GObject *) { --*static_cast<int *>(count); }, &alive);
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
            if (round == 2)
                files = testsupport::openDescriptors();
        }
        TRY_COMPARE(alive, 0);
        QVERIFY(testsupport::openDescriptors() <= files);
    }

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

QTEST_GUILESS_MAIN(tst_gstreamerpipeline)
#include "tst_gstreamerpipeline.moc"
