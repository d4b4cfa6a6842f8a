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

// Element name and progress texts of a pipeline. Texts are printed verbatim, line ends included;
// an empty text prints nothing.
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

// Base of the camera pipelines. Builds a GStreamer pipeline from a launch description and starts
// it, stops it by sending an end-of-stream event, and tears it down on the event loop when the bus
// reports end of stream or an error. All functions but pushBuffer() and getPosition() must be
// called on the event-loop thread, whose event loop must dispatch GLib's default main context.
// Nothing waits for the end of stream; a change of state opens or closes the camera without a
// timeout.
class GStreamerPipeline
{
public:
    GStreamerPipeline(const GStreamerPipeline &) = delete;
    GStreamerPipeline &operator=(const GStreamerPipeline &) = delete;
    // Releases a running pipeline without printing.
    virtual ~GStreamerPipeline();

    // Copies one frame into the application source. Does not wait: drops the frame while the lock
    // is held or if no application source runs.
    void pushBuffer(const void *data, unsigned size);

    // Stream time of the frames pushed since the last start, in milliseconds.
    std::uint64_t getPosition();

    // Bus watch; data is the pipeline object.
    static gboolean gstreamerCallback(GstBus *bus, GstMessage *message, gpointer data);

    // Releases the pipeline and returns to idle; no effect when idle.
    void handleNullState();

protected:
    GStreamerPipeline(VideoCaptureStatusHandler *handler, const PipelineTexts &pipelineTexts);

    // Prints the starting text; if idle, builds and starts the pipeline. Throws std::runtime_error,
    // and stays idle, if it cannot be built; a pipeline that cannot run reports that on its bus
    // later.
    void start(const std::string &description);
    // Sends end of stream to a running pipeline.
    void stop();

    // Sets properties of the built pipeline before it starts.
    virtual void prepare(GstElement *built);
    // Called after a frame was pushed, with the lock held.
    virtual void framePushed();
    // Called after the pipeline was released.
    virtual void tornDown();

    std::mutex lock;                            // guards everything below but statusHandler
    std::condition_variable nullStateCondition; // signalled at every teardown
    GstElementPointer pipeline;
    GstElementPointer appSrc; // receives the frames of pushBuffer()
    GstElementPointer source; // the camera
    enum State : std::int32_t { idle = 0, running = 1, stopping = 2 } state = idle;
    std::uint64_t frameCount = 0;
    VideoCaptureStatusHandler *statusHandler;

private:
    void handleMessage(GstMessage *message);
    void enterNullState();

    const PipelineTexts &texts;
};
