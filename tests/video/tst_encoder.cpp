// SPDX-License-Identifier: LicenseRef-KT6120
#include "videotestsupport.h"

#include <gst/gst.h>
#include <memory>

namespace
{

struct Release {
    void operator()(GstElement *element) const
    {
        gst_element_set_state(element, GST_STATE_NULL);
        gst_object_unref(element);
    }
};
using Element = std::unique_ptr<GstElement, Release>;

QString caps(GstElement *element, const char *field)
{
    g_autoptr(GstPad) pad = gst_element_get_static_pad(element, "sink");
    g_autoptr(GstCaps) current = gst_pad_get_current_caps(pad);
    return gst_structure_get_string(gst_caps_get_structure(current, 0), field);
}

} // namespace

// The plug-in's omxh264enc, around the kernel's encoder and where there is none.
class tst_encoder : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        useStandIns();
        setStandIn("encoder", "ok");
        gst_init(nullptr, nullptr);
        kernels = gst_registry_lookup_feature(gst_registry_get(), "v4l2h264enc");
        QVERIFY(kernels);
    }
    void cleanup() { gst_registry_add_feature(gst_registry_get(), kernels); }
    void cleanupTestCase() { gst_object_unref(kernels); }

    void encodes_data()
    {
        QTest::addColumn<bool>("hasKernels");
        QTest::addColumn<bool>("isForPhone");
        for (const bool hasKernels : {true, false})
            for (const bool isForPhone : {true, false})
                QTest::addRow("%s, %s", hasKernels ? "kernel's" : "none",
                              isForPhone ? "phone" : "PAL")
                    << hasKernels << isForPhone;
    }
    void encodes()
    {
        QFETCH(bool, hasKernels);
        QFETCH(bool, isForPhone);
        if (!hasKernels)
            gst_registry_remove_feature(gst_registry_get(), kernels);
        const Element pipeline(gst_parse_launch(
            "videotestsrc num-buffers=51 pattern=snow ! "
            "video/x-raw,width=720,height=576,framerate=25/1 ! omxh264enc name=encoder "
            "target-bitrate=1000000 control-rate=1 b-frames=0 ! "
            "fakesink name=sink signal-handoffs=true",
            nullptr));
        QVERIFY(pipeline);
        const auto bin = GST_BIN(pipeline.get());
        g_autoptr(GstElement) encoder = gst_bin_get_by_name(bin, "encoder");
        g_autoptr(GstElement) sink = gst_bin_get_by_name(bin, "sink");
        if (isForPhone)
            gst_util_set_object_arg(G_OBJECT(encoder), "caps",
                                    "video/x-h264,profile=(string)baseline,level=(string)3");

        struct Seen {
            int frames = 0, keyFrames = 0;
            gsize bytes = 0;
        } seen;
        const auto handoff = +[](GstElement *, GstBuffer *frame, GstPad *, Seen *count) {
            ++count->frames;
            count->keyFrames += !GST_BUFFER_FLAG_IS_SET(frame, GST_BUFFER_FLAG_DELTA_UNIT);
            count->bytes += gst_buffer_get_size(frame);
        };
        g_signal_connect(sink, "handoff", G_CALLBACK(handoff), &seen);
        gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
        g_autoptr(GstBus) bus = gst_element_get_bus(pipeline.get());
        g_autoptr(GstMessage) last = gst_bus_timed_pop_filtered(
            bus, 60 * GST_SECOND, GstMessageType(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
        QVERIFY(last);
        QCOMPARE(GST_MESSAGE_TYPE_NAME(last), "eos");
        QCOMPARE(caps(sink, "stream-format"), QString("byte-stream"));
        QCOMPARE(caps(sink, "level"), QString("3"));
        if (isForPhone)
            QCOMPARE(caps(sink, "profile"), QString("baseline"));
        QCOMPARE(seen.frames, 51);
        QCOMPARE(seen.keyFrames, 3); // a second apart
        // Two seconds of what compresses worst: 250,000 bytes asked for.
        QVERIFY2(seen.bytes > 200000 && seen.bytes < 400000,
                 qPrintable(QString::number(seen.bytes)));
    }

    // What no phone decodes is not made of what the hardware would not take.
    void takesWhatTheHardwareTakes()
    {
        gst_registry_remove_feature(gst_registry_get(), kernels);
        g_autoptr(GError) error = nullptr;
        const Element pipeline(gst_parse_launch(
            "videotestsrc ! video/x-raw,format=Y444 ! omxh264enc ! fakesink", &error));
        QVERIFY(error);
    }

private:
    GstPluginFeature *kernels = nullptr;
};

QTEST_GUILESS_MAIN(tst_encoder)
#include "tst_encoder.moc"
