// SPDX-License-Identifier: LicenseRef-KT6120
#include "gstreamerpalpipeline.h"
#include "gstreamerstreampipeline.h"
#include "videotestsupport.h"

#include <QUdpSocket>

#include <stdexcept>
#include <thread>

namespace
{

// The two real pipelines, with a look inside.
struct Pal : GStreamerPALPipeline {
    using GStreamerPALPipeline::flushPath, GStreamerPipeline::pipeline, GStreamerPipeline::lock;
    using GStreamerPALPipeline::GStreamerPALPipeline;
    using GStreamerPipeline::start, GStreamerPipeline::appSrc;
    void startFrames() // taken from the program, beside a camera
    {
        start("appsrc name=frames ! appsink name=taken async=false sync=false "
              "videotestsrc is-live=true name=v4lsrc ! fakesink async=false");
    }
    void prepare(GstElement *built) override
    {
        appSrc.reset(gst_bin_get_by_name(GST_BIN(built), "frames"));
    }
};

struct Stream : GstreamerStreamPipeline {
    using GStreamerPipeline::pipeline, GStreamerPipeline::start;
    using GstreamerStreamPipeline::GstreamerStreamPipeline;
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

    // A run ends when it is told to or by a fault, which is told with the element's own text; it
    // leaves the pipeline idle: it runs again.
    void runsEndIdle_data()
    {
        QTest::addColumn<QString>("standIn");
        QTest::addColumn<QByteArray>("fault");
        QTest::addColumn<bool>("atStart");
        QTest::addColumn<bool>("stopped");
        QTest::addColumn<QString>("told");
        const QString noDevice = "error 0 Cannot identify device '/dev/video0'.";
        const QString gone = "error 0 Could not read from resource.";
        const QString encoder = "error 0 Could not encode stream.";
        // clang-format off
        QTest::newRow("stopped") << "camera" << QByteArray("ok") << false << true << QString();
        QTest::newRow("stopped while starting") << "camera" << QByteArray("ok") << true << true << QString();
        QTest::newRow("no camera") << "camera" << QByteArray("missing") << true << false << noDevice;
        QTest::newRow("no camera, stopped while starting") << "camera" << QByteArray("missing") << true << true << noDevice;
        QTest::newRow("camera lost") << "camera" << QByteArray("lost") << false << false << gone;
        QTest::newRow("camera lost while stopping") << "camera" << QByteArray("lost") << false << true << QString(); // or told, or not
        QTest::newRow("encoder fails at start") << "encoder" << QByteArray("fails") << true << false << encoder;
        QTest::newRow("encoder fails") << "encoder" << QByteArray("fails") << false << false << encoder;
        // clang-format on
    }
    void runsEndIdle()
    {
        QFETCH(QString, standIn);
        QFETCH(QByteArray, fault);
        QFETCH(bool, atStart);
        QFETCH(bool, stopped);
        QFETCH(QString, told);
        QUdpSocket receiver;
        QVERIFY(receiver.bind(QHostAddress::LocalHost, 8083));
        const auto waitForPicture = [&receiver] {
            while (receiver.hasPendingDatagrams())
                receiver.readDatagram(nullptr, 0);
            QTRY_VERIFY(receiver.hasPendingDatagrams());
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
            QTRY_VERIFY(output.text().contains("unref pipeline"));
            if (!told.isEmpty())
                QCOMPARE(handler.notes.value(0), told);
            QCOMPARE(handler.notes.count("recording complete"), int(local));
            QCOMPARE(output.take().count(local ? "Started" : "# Started"), 1);

            setStandIn(standIn, "ok");
            start();
            waitForPicture();
            stop();
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
        QVERIFY(!pal.pipeline && !stream.pipeline);
        pal.startVideo();
        QVERIFY(output.text().endsWith("Started PAL Video\n"));
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
        QCOMPARE(handler.notes, QStringList({"recording complete"}));
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
        QVERIFY(!output.text().contains("eos") && pal.pipeline);
        gst_object_unref(old);
    }

    void frameInput()
    {
        NotingHandler handler;
        Pal frames(&handler);
        OutputCapture output;
        const QByteArray frame(720 * 576 * 3, '\x5a');
        const auto push = [&] { frames.pushBuffer(frame.constData(), unsigned(frame.size())); };
        push();
        QCOMPARE(frames.getPosition(), std::uint64_t(0));
        frames.startFrames();
        for (int i = 0; i < 25; ++i)
            push();
        frames.lock.lock();
        std::thread(push).join(); // dropped
        frames.lock.unlock();
        QCOMPARE(frames.getPosition(), std::uint64_t(1000));
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
            QTRY_VERIFY(!stream.pipeline);
            if (round == 2)
                files = testsupport::openDescriptors();
        }
        QTRY_COMPARE(alive, 0);
        QVERIFY(testsupport::openDescriptors() <= files);
    }
};

QTEST_GUILESS_MAIN(tst_gstreamerpipeline)
#include "tst_gstreamerpipeline.moc"
