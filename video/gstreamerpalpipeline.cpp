// SPDX-License-Identifier: LicenseRef-KT6120
#include "gstreamerpalpipeline.h"

#include "paths.h"

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;

namespace
{

// After the camera's path.
constexpr char restOfDescription[] = " name=v4lsrc ! queue ! videoconvert ! "
                                     "video/x-raw,width=720,height=576,framerate=25/1 ! queue ! "
                                     "omxh264enc target-bitrate=4000000 control-rate=1 !  "
                                     "rtph264pay ! udpsink host=127.0.0.1 port=8083 sync=false";

constexpr PipelineTexts palTexts{
    /* sourceName */ "v4lsrc",
    /* starting */ "Starting PAL Video\n",
    /* started */ "Started PAL Video\n",
    /* stopping */ "# Stopping PAL Video\n",
    /* endOfStream */ "alsa EOS\n",
    /* sourceReleased */ "unref src\n",
    /* stopped */ "# Stopped PAL Video\n",
    /* message */ "Got gstreamer event: ",
    /* pipelineReleased */ "unref pipeline\n",
};

// Gives the pipeline time to take a frame before the next is pushed.
constexpr auto pauseAfterFrame = 1ms;

} // namespace

GStreamerPALPipeline::GStreamerPALPipeline(VideoCaptureStatusHandler *handler)
    : GStreamerPipeline(handler, palTexts)
{
}

GStreamerPALPipeline::~GStreamerPALPipeline()
{
    stopVideo();
}

void GStreamerPALPipeline::startVideo()
{
    start(std::string("v4l2src device=") + paths::camera + restOfDescription);
}

void GStreamerPALPipeline::stopVideo()
{
    stop();
}

void GStreamerPALPipeline::framePushed()
{
    std::this_thread::sleep_for(pauseAfterFrame);
}

void GStreamerPALPipeline::tornDown()
{
    std::string path;
    {
        const std::lock_guard<std::mutex> guard(lock);
        path = flushPath;
    }
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (file >= 0) {
        fsync(file);
        close(file);
    } else {
        perror("Open for flush\n");
    }
    statusHandler->videoRecordingCompleteHandler();
}
