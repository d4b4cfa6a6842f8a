#include "gstreamerpalpipeline.h"
#include "gstreamerstreampipeline.h"
#include "videotestsupport.h"

#include <QUdpSocket>

#include <atomic>
#include <gst/app/gstappsink.h>
#include <stdexcept>
#include <thread>

namespace
{

// The two real pipelines, with a look inside.
struct Pal : GStreamerPALPipeline {
    using GStreamerPALPipeline::flushPath, GStreamerPipeline::pipeline, GStreamerPipeline::lock;
    using GStreamerPALPipeline::GStreamerPALPipeline;
    using GStreamerPipeline::start, GStreamerPipeline::stop;
    GstElement *element(const char *name)
    {
        return gst_bin_get_by_name(GST_BIN(pipeline.get()), name);
    }
};

struct Stream : GstreamerStreamPipeline {
    using GStreamerPipeline::pipeline, GStreamerPipeline::start;
    using GstreamerStreamPipeline::GstreamerStreamPipeline;
};

// Takes its frames from the program, beside a camera.
struct FramePipeline : Pal {
    using Pal::Pal;
    void prepare(GstElement *built) override
    {
        appSrc.reset(gst_bin_get_by_name(GST_BIN(built), "frames"));
    }
    void startFrames()
    {
        start("appsrc name=frames ! appsink name=taken async=false sync=false "
              "videotestsrc is-live=true name=v4lsrc ! fakesink async=false");
    }
};

template <class Start>
QString failure(Start start)
{
    try {
        start();
    } catch (const std::runtime_error &error) {
        return error.what();
    }
    return "no failure";
}

} // namespace

class tst_gstreamerpipeline : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { useStandIns(); }

    void init()
    {
        setStandIn("camera", "ok");
        setStandIn("encoder", "ok");
    }

    void palStartsAndStops()
    {
        QUdpSocket receiver;
        QVERIFY(receiver.bind(QHostAddress::LocalHost, 8083));
        NotingHandler handler;
        Pal pal(&handler);
        OutputCapture errors(STDERR_FILENO);
        OutputCapture output;
        for (int round = 0; round < 2; ++round) {
            pal.stopVideo();
            QCOMPARE(output.take(), QByteArray("# Stopping PAL Video\n"));
            pal.startVideo();
            QCOMPARE(output.take(), QByteArray("Starting PAL Video\nStarted PAL Video\n"));
            pal.startVideo();
            QCOMPARE(output.take(), QByteArray("Starting PAL Video\n"));
            QTRY_VERIFY(receiver.hasPendingDatagrams());
            output.take();

            pal.stopVideo();
            QCOMPARE(output.take(), QByteArray("# Stopping PAL Video\nalsa EOS\nunref src\n"
                                               "# Stopped PAL Video\n"));
            pal.startVideo();
            pal.stopVideo();
            QCOMPARE(output.take(), QByteArray("Starting PAL Video\n# Stopping PAL Video\n"));
            QTRY_VERIFY(output.text().endsWith("unref pipeline\n"));
            QVERIFY(output.take().endsWith("Got gstreamer event: eos\nunref pipeline\n"));
            QCOMPARE(errors.take(), QByteArray("Open for flush\n: No such file or directory\n"));
            while (receiver.hasPendingDatagrams())
                receiver.readDatagram(nullptr, 0);
        }
        QCOMPARE(*handler.notes, QStringList({"recording complete", "recording complete"}));
    }

    void streamStartsAndStops()
    {
        QUdpSocket receiver;
        QVERIFY(receiver.bind(QHostAddress::LocalHost, 5004));
        NotingHandler handler;
        GstreamerStreamPipeline stream(&handler);
        OutputCapture output;
        stream.stopStreaming();
        stream.startStreaming("127.0.0.1", "5004");
        stream.startStreaming("127.0.0.1", "5004");
        QCOMPARE(output.take(), QByteArray("# Starting Video Stream\n# Started Video Stream\n"
                                           "# Starting Video Stream\n"));
        QTRY_VERIFY(receiver.hasPendingDatagrams());
        QVERIFY(output.take().startsWith("STREAM:Got gstreamer event: "));
        stream.stopStreaming();
        stream.stopStreaming();
        stream.startStreaming("127.0.0.1", "5004");
        QCOMPARE(output.take(), QByteArray("unref src stream\n# Starting Video Stream\n"));
        QTRY_VERIFY(
            output.text().endsWith("STREAM:Got gstreamer event: eos\nunref pipeline stream\n"));
        QCOMPARE(*handler.notes, QStringList());
    }

    // Whatever fails once it runs is told with the element's own text, and leaves the
    // pipeline idle: it runs again when the fault is gone.
    void faultsEndIdle_data()
    {
        QTest::addColumn<QString>("standIn");
        QTest::addColumn<QByteArray>("fault");
        QTest::addColumn<bool>("atStart");
        QTest::addColumn<bool>("stopAtOnce");
        QTest::addColumn<QString>("told");
        const QString noDevice = "error 0 Cannot identify device '/dev/video0'.";
        const QString gone = "error 0 Could not read from resource.";
        const QString encoder = "error 0 Could not encode stream.";
        // clang-format off
        QTest::newRow("no camera") << "camera" << QByteArray("missing") << true << false << noDevice;
        QTest::newRow("no camera, stopped while starting") << "camera" << QByteArray("missing") << true << true << noDevice;
        QTest::newRow("camera lost") << "camera" << QByteArray("lost") << false << false << gone;
        QTest::newRow("camera lost while stopping") << "camera" << QByteArray("lost") << false << true << gone;
        QTest::newRow("encoder fails at start") << "encoder" << QByteArray("fails") << true << false << encoder;
        QTest::newRow("encoder fails") << "encoder" << QByteArray("fails") << false << false << encoder;
        QTest::newRow("stopped while starting") << "camera" << QByteArray("ok") << true << true << QString();
        // clang-format on
    }
    void faultsEndIdle()
    {
        QFETCH(QString, standIn);
        QFETCH(QByteArray, fault);
        QFETCH(bool, atStart);
        QFETCH(bool, stopAtOnce);
        QFETCH(QString, told);
        QUdpSocket receiver;
        QVERIFY(receiver.bind(QHostAddress::LocalHost, 8083));
        NotingHandler handler;
        GStreamerPALPipeline pal(&handler);
        GstreamerStreamPipeline stream(&handler);
        OutputCapture errors(STDERR_FILENO);
        OutputCapture output;
        const auto start = [&](bool local) {
            local ? pal.startVideo() : stream.startStreaming("127.0.0.1", "8083");
        };
        for (const bool local : {true, false}) {
            setStandIn(standIn, atStart ? fault : "ok");
            handler.notes->clear();
            start(local);
            if (!atStart)
                QTRY_VERIFY(receiver.hasPendingDatagrams());
            setStandIn(standIn, fault);
            if (stopAtOnce)
                local ? pal.stopVideo() : stream.stopStreaming();
            QTRY_VERIFY(output.text().contains("unref pipeline"));
            // A camera lost while the end of stream travels may be past caring.
            if (!told.isEmpty() && (!stopAtOnce || atStart))
                QCOMPARE(handler.notes->value(0), told);
            QCOMPARE(handler.notes->count("recording complete"), int(local));

            setStandIn(standIn, "ok");
            while (receiver.hasPendingDatagrams())
                receiver.readDatagram(nullptr, 0);
            start(local);
            QTRY_VERIFY(receiver.hasPendingDatagrams());
            output.take();
            local ? pal.stopVideo() : stream.stopStreaming();
            QTRY_VERIFY(output.text().contains("unref pipeline"));
            output.take();
        }
    }

    void failedStartsThrowAndStayIdle()
    {
        NotingHandler handler;
        Pal pal(&handler);
        Stream stream(&handler);
        OutputCapture output;
        const auto streamTo = [&](const char *ip, const char *port) {
            return failure([&] { stream.startStreaming(ip, port); });
        };
        QCOMPARE(streamTo("127.0.0.1", "x"),
                 QString("could not set property \"port\" in element \"udpsink\" to \"x\""));
        QCOMPARE(streamTo("here ! there", "5004"), QString("no element \"there\""));
        QCOMPARE(failure([&] { stream.start("fakesrc ! fakesink"); }),
                 QString("Unable to connect to v4l2src"));
        QCOMPARE(failure([&] { stream.start("fakesrc name=v4l2src ! fakesink"); }),
                 QString("Unable to connect to omxh264enc"));
        QCOMPARE(failure([&] { pal.start("fakesrc ! fakesink"); }),
                 QString("Unable to connect to v4lsrc"));
        output.take();

        GstRegistry *registry = gst_registry_get();
        GstPluginFeature *encoder = gst_registry_lookup_feature(registry, "omxh264enc");
        gst_registry_remove_feature(registry, encoder);
        const QString told = failure([&] { pal.startVideo(); });
        gst_registry_add_feature(registry, encoder);
        gst_object_unref(encoder);
        QCOMPARE(told, QString("no element \"omxh264enc\""));
        QCOMPARE(output.take(), QByteArray("Starting PAL Video\n"));
        QVERIFY(!pal.pipeline && !stream.pipeline);
        pal.startVideo();
        QVERIFY(output.take().endsWith("Started PAL Video\n"));
    }

    // Until its end is reported the pipeline stays in stopping, and refuses a start.
    void endOfStreamThatNeverComes()
    {
        NotingHandler handler;
        Pal pal(&handler);
        OutputCapture errors(STDERR_FILENO);
        OutputCapture output;
        pal.start("videotestsrc is-live=true name=v4lsrc ! fakesink async=false "
                  "videotestsrc is-live=true ! fakesink async=false");
        pal.stopVideo();
        pal.startVideo();
        QVERIFY(output.take().endsWith("# Stopped PAL Video\nStarting PAL Video\n"));
        gst_element_post_message(pal.pipeline.get(),
                                 gst_message_new_state_changed(GST_OBJECT(pal.pipeline.get()),
                                                               GST_STATE_READY, GST_STATE_NULL,
                                                               GST_STATE_VOID_PENDING));
        QTRY_VERIFY(output.text().endsWith("unref pipeline\n"));
        pal.handleNullState();
        QCOMPARE(output.text().count("unref pipeline\n"), 1);
        QCOMPARE(*handler.notes, QStringList({"recording complete"}));
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
        QTRY_VERIFY(output.text().endsWith("unref pipeline\n"));
        QCOMPARE(errors.text(), QByteArray()); // there was a file to flush
        pal.startVideo();
        output.take();
        gst_bus_set_flushing(old, FALSE);
        gst_bus_post(old, gst_message_new_eos(nullptr));
        QTRY_VERIFY(output.text().contains("state-changed")); // the new run's
        QVERIFY(!output.text().contains("eos"));
        QVERIFY(pal.pipeline);
        gst_object_unref(old);
    }

    void frameInput()
    {
        NotingHandler handler;
        FramePipeline frames(&handler);
        OutputCapture errors(STDERR_FILENO);
        OutputCapture output;
        const QByteArray frame(720 * 576 * 3, '\x5a');
        const auto push = [&] { frames.pushBuffer(frame.constData(), unsigned(frame.size())); };
        push();
        QCOMPARE(frames.getPosition(), std::uint64_t(0));

        frames.startFrames();
        for (int i = 0; i < 25; ++i)
            push();
        QCOMPARE(frames.getPosition(), std::uint64_t(1000));
        GstElement *sink = frames.element("taken");
        GstSample *sample = gst_app_sink_pull_sample(GST_APP_SINK(sink));
        GstBuffer *taken = gst_sample_get_buffer(sample);
        QCOMPARE(gst_buffer_get_size(taken), gsize(frame.size()));
        QCOMPARE(gst_buffer_memcmp(taken, 0, frame.constData(), gsize(frame.size())), 0);
        gst_sample_unref(sample);
        gst_object_unref(sink);

        output.take();
        frames.lock.lock();
        std::thread(push).join();
        frames.lock.unlock();
        QCOMPARE(output.take(), QByteArray("Wait for record lock timed out\n"));
        QCOMPARE(frames.getPosition(), std::uint64_t(1000));

        std::atomic<bool> enough{false};
        std::thread pusher([&] {
            while (!enough)
                push();
        });
        for (int round = 0; round < 5; ++round) {
            gst_element_post_message(frames.pipeline.get(),
                                     gst_message_new_eos(GST_OBJECT(frames.pipeline.get())));
            QTRY_VERIFY(!frames.pipeline);
            frames.startFrames();
            QTRY_VERIFY(frames.getPosition() > 0);
        }
        enough = true;
        pusher.join();
    }

    // Everything made for a run is gone after it, with the pipeline or, running, with its owner.
    void roundsLeaveNothingBehind()
    {
        int alive = 0;
        const auto watch = [&alive](gpointer object) {
            ++alive;
            const auto gone = [](gpointer count, GObject *) { --*static_cast<int *>(count); };
            g_object_weak_ref(G_OBJECT(object), gone, &alive);
        };
        NotingHandler handler;
        OutputCapture errors(STDERR_FILENO);
        OutputCapture output;
        int files = 0;
        for (int round = 0; round < 25; ++round) {
            Stream stream(&handler);
            stream.startStreaming("127.0.0.1", "5004");
            const auto bin = GST_BIN(stream.pipeline.get());
            GstElement *encoder = gst_bin_get_by_name(bin, "omxh264enc");
            GstCaps *caps = nullptr;
            g_object_get(encoder, "caps", &caps, nullptr);
            g_autofree char *text = gst_caps_to_string(caps);
            QCOMPARE(text, "video/x-h264, profile=(string)baseline, level=(string)3");
            ++alive;
            gst_mini_object_weak_ref(
                GST_MINI_OBJECT(caps),
                [](gpointer count, GstMiniObject *) { --*static_cast<int *>(count); }, &alive);
            gst_caps_unref(caps);
            watch(bin);
            for (gpointer held :
                 {gpointer(gst_element_get_bus(GST_ELEMENT(bin))),
                  gpointer(gst_bin_get_by_name(bin, "v4l2src")), gpointer(encoder)}) {
                watch(held);
                gst_object_unref(held);
            }
            if (round % 3 == 0)
                continue; // still running
            if (round % 3 == 1)
                stream.stopStreaming();
            else
                gst_element_post_message(stream.pipeline.get(), gst_message_new_eos(nullptr));
            QTRY_VERIFY(!stream.pipeline);
            QTRY_COMPARE(alive, 0);
            if (round == 2)
                files = testsupport::openDescriptors();
        }
        QTRY_COMPARE(alive, 0);
        QVERIFY(testsupport::openDescriptors() <= files);
    }
};

QTEST_GUILESS_MAIN(tst_gstreamerpipeline)
#include "tst_gstreamerpipeline.moc"
