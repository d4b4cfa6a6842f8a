// SPDX-License-Identifier: LicenseRef-KT6120

// The launch texts as GStreamer gets them, to the byte: a test that only looks at the picture
// would not see a changed bit rate or a setting left out.

#include "gstreamerpalpipeline.h"
#include "gstreamerstreampipeline.h"

#include <QtTest>

#include <stdexcept>

namespace
{

QByteArray launched;

}

// In place of the library's: notes the text and builds nothing.
extern "C" GstElement *gst_parse_launch(const gchar *description, GError **error)
{
    launched = description;
    g_set_error_literal(error, gst_parse_error_quark(), 0, "noted");
    return nullptr;
}

class tst_launchtexts : public QObject
{
    Q_OBJECT

private slots:
    void launchTexts()
    {
        CascadedCaptureStatusHandler handler;
        GStreamerPALPipeline pal(&handler);
        QVERIFY_EXCEPTION_THROWN(pal.startVideo(), std::runtime_error);
        QCOMPARE(launched,
                 QByteArray("v4l2src device=/dev/video0 name=v4lsrc ! queue ! videoconvert ! "
                            "video/x-raw,width=720,height=576,framerate=25/1 ! queue ! "
                            "omxh264enc target-bitrate=4000000 control-rate=1 !  rtph264pay ! "
                            "udpsink host=127.0.0.1 port=8083 sync=false"));
        GstreamerStreamPipeline stream(&handler);
        QVERIFY_EXCEPTION_THROWN(stream.startStreaming("ADDRESS", "PORT"), std::runtime_error);
        QCOMPARE(launched,
                 QByteArray("v4l2src device=/dev/video0 name=v4l2src ! queue ! videoconvert ! "
                            "video/x-raw,width=720,height=576,framerate=25/1 ! queue ! "
                            "omxh264enc name=omxh264enc target-bitrate=4000000 control-rate=1 "
                            "b-frames=0 !  rtph264pay ! udpsink host=ADDRESS port=PORT "
                            "sync=false"));
    }
};

QTEST_GUILESS_MAIN(tst_launchtexts)
#include "tst_launchtexts.moc"
