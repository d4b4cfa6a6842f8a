// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "error_handler.h"

#include <condition_variable>
#include <cstdint>
#include <gst/gst.h>
#include <memory>
#include <mutex>
#include <string>

struct GstUnref {
    void operator()(gpointer object) const { gst_object_unref(object); }
};
using GstElementPointer = std::unique_ptr<GstElement, GstUnref>;

// What one kind of pipeline is called and prints. Texts are printed as they stand, line ends
// included; an empty one prints nothing.
struct PipelineTexts {
    const char *sourceName; // name of the camera source in the launch description
    const char *starting;
    const char *started;
    const char *stopping;
    const char *endOfStream;
    const char *sourceReleased;
    const char *stopped;
    const char *message; // before the type name of every bus message
    const char *pipelineReleased;
};

// The machinery of the unit's camera pipelines: one GStreamer pipeline built from a launch
// description, started at once, stopped by an end of stream that travels through it, and torn
// down on the event loop when its bus reports the end or an error. Everything but pushBuffer()
// and getPosition() belongs to the event-loop thread, whose event loop has to dispatch GLib's
// default main context. Nothing here waits.
class GStreamerPipeline
{
public:
    GStreamerPipeline(const GStreamerPipeline &) = delete;
    GStreamerPipeline &operator=(const GStreamerPipeline &) = delete;
    // A pipeline that still runs is released without a word.
    virtual ~GStreamerPipeline();

    // Copies one frame into the application source. Never waits: while the lock is held, or
    // with no application source running, the frame is dropped.
    void pushBuffer(const void *data, unsigned size);

    // Stream time of the frames pushed since the last start, in milliseconds.
    std::uint64_t getPosition();

    // Bus watch; data is the pipeline object.
    static gboolean gstreamerCallback(GstBus *bus, GstMessage *message, gpointer data);

    // Releases the pipeline and returns to idle; harmless when that has been done.
    void handleNullState();

protected:
    GStreamerPipeline(VideoCaptureStatusHandler *handler, const PipelineTexts &pipelineTexts);

    // Does nothing but print unless idle. Throws std::runtime_error, and stays idle, when the
    // pipeline cannot be built; a pipeline that cannot run reports that on its bus later.
    void start(const std::string &description);
    // Asks a running pipeline to end.
    void stop();

    // Last settings of a built pipeline, before it starts.
    virtual void prepare(GstElement *built);
    // A frame has been handed over; the lock is held.
    virtual void framePushed();
    // The pipeline has been released.
    virtual void tornDown();

    std::mutex lock;                            // guards everything below but statusHandler
    std::condition_variable nullStateCondition; // signalled at every teardown
    GstElementPointer pipeline;
    GstElementPointer appSrc; // takes the frames of pushBuffer()
    GstElementPointer source; // the camera
    enum State : std::int32_t { idle = 0, running = 1, stopping = 2 } state = idle;
    std::uint64_t frameCount = 0;
    VideoCaptureStatusHandler *statusHandler;

private:
    void handleMessage(GstMessage *message);
    void enterNullState();

    const PipelineTexts &texts;
};
