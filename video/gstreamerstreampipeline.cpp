// SPDX-License-Identifier: LicenseRef-KT6120
#include "gstreamerstreampipeline.h"

#include "paths.h"

#include <stdexcept>

namespace
{

// Between the camera's path and the address.
constexpr char middleOfDescription[] =
    " name=v4l2src ! queue ! videoconvert ! "
    "video/x-raw,width=720,height=576,framerate=25/1 ! queue ! "
    "omxh264enc name=omxh264enc target-bitrate=4000000 control-rate=1 b-frames=0 !  "
    "rtph264pay ! udpsink host=";

constexpr PipelineTexts streamTexts{
    /* sourceName */ "v4l2src",
    /* starting */ "# Starting Video Stream\n",
    /* started */ "# Started Video Stream\n",
    /* stopping */ "",
    /* endOfStream */ "",
    /* sourceReleased */ "unref src stream\n",
    /* stopped */ "",
    /* message */ "STREAM:Got gstreamer event: ",
    /* pipelineReleased */ "unref pipeline stream\n",
};

} // namespace

GstreamerStreamPipeline::GstreamerStreamPipeline(VideoCaptureStatusHandler *handler)
    : GStreamerPipeline(handler, streamTexts)
{
}

GstreamerStreamPipeline::~GstreamerStreamPipeline()
{
    stopStreaming();
}

void GstreamerStreamPipeline::startStreaming(std::string ip, std::string port)
{
    start(std::string("v4l2src device=") + paths::camera + middleOfDescription + ip
          + " port=" + port + " sync=false");
}

void GstreamerStreamPipeline::stopStreaming()
{
    stop();
}

void GstreamerStreamPipeline::prepare(GstElement *built)
{
    const GstElementPointer encoder(gst_bin_get_by_name(GST_BIN(built), "omxh264enc"));
    if (!encoder)
        throw std::runtime_error("Unable to connect to omxh264enc");
    // Every phone decodes baseline, level 3.
    g_autoptr(GstCaps) caps = gst_caps_new_simple("video/x-h264", "profile", G_TYPE_STRING,
                                                  "baseline", "level", G_TYPE_STRING, "3", nullptr);
    g_object_set(encoder.get(), "caps", caps, nullptr);
}
