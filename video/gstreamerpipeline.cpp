// SPDX-License-Identifier: LicenseRef-KT6120
#include "gstreamerpipeline.h"

#include "console.h"

#include <gst/app/gstappsrc.h>
#include <stdexcept>
#include <utility>

namespace
{

constexpr std::uint64_t framesPerSecond = 25;

GstElementPointer parse(const std::string &description)
{
    g_autoptr(GError) error = nullptr;
    GstElementPointer built(gst_parse_launch(description.c_str(), &error));
    if (built)
        gst_object_ref_sink(built.get());
    if (error)
        throw std::runtime_error(error->message);
    if (!built)
        throw std::runtime_error("Unable to create gstreamer pipeline");
    return built;
}

// The watch references the bus, and its target may have started the next pipeline by the time a
// message arrives: remove the watch before the pipeline.
void release(GstElementPointer pipeline)
{
    g_autoptr(GstBus) bus = gst_element_get_bus(pipeline.get());
    gst_bus_remove_watch(bus);
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
}

} // namespace

GStreamerPipeline::GStreamerPipeline(VideoCaptureStatusHandler *handler,
                                     const PipelineTexts &pipelineTexts)
    : statusHandler(handler), texts(pipelineTexts)
{
    gst_init(nullptr, nullptr);
}

GStreamerPipeline::~GStreamerPipeline()
{
    if (pipeline)
        release(std::move(pipeline));
}

void GStreamerPipeline::start(const std::string &description)
{
    print(texts.starting);
    if (state != idle)
        return;

    GstElementPointer built = parse(description);
    GstElementPointer camera(gst_bin_get_by_name(GST_BIN(built.get()), texts.sourceName));
    if (!camera)
        throw std::runtime_error(std::string("Unable to connect to ") + texts.sourceName);
    prepare(built.get());

    // Failures arrive on the bus, which queues messages until the watch reads them.
    gst_element_set_state(built.get(), GST_STATE_PLAYING);
    {
        g_autoptr(GstBus) bus = gst_element_get_bus(built.get());
        gst_bus_add_watch(bus, gstreamerCallback, this);
    }
    {
        const std::lock_guard<std::mutex> guard(lock);
        pipeline = std::move(built);
        source = std::move(camera);
        state = running;
        frameCount = 0;
    }
    print(texts.started);
}

void GStreamerPipeline::stop()
{
    print(texts.stopping);
    if (state != running)
        return;

    GstElementPointer camera;
    {
        const std::lock_guard<std::mutex> guard(lock);
        camera = std::move(source);
        state = stopping;
    }
    print(texts.endOfStream);
    gst_element_send_event(camera.get(), gst_event_new_eos());
    camera.reset();
    print(texts.sourceReleased);
    print(texts.stopped);
}

gboolean GStreamerPipeline::gstreamerCallback(GstBus *, GstMessage *message, gpointer data)
{
    static_cast<GStreamerPipeline *>(data)->handleMessage(message);
    return TRUE;
}

void GStreamerPipeline::handleMessage(GstMessage *message)
{
    print(texts.message + std::string(GST_MESSAGE_TYPE_NAME(message)) + '\n');
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR: {
        g_autoptr(GError) error = nullptr;
        gst_message_parse_error(message, &error, nullptr);
        statusHandler->videoCaptureErrorHandler(false, error->message);
        enterNullState();
        break;
    }
    case GST_MESSAGE_EOS:
        enterNullState();
        break;
    case GST_MESSAGE_STATE_CHANGED: {
        GstState reached = GST_STATE_VOID_PENDING;
        gst_message_parse_state_changed(message, nullptr, &reached, nullptr);
        if (reached == GST_STATE_NULL)
            handleNullState();
        break;
    }
    default:
        break;
    }
}

void GStreamerPipeline::enterNullState()
{
    GstElement *ending = nullptr;
    {
        const std::lock_guard<std::mutex> guard(lock);
        ending = pipeline.get();
    }
    if (ending && gst_element_set_state(ending, GST_STATE_NULL) == GST_STATE_CHANGE_SUCCESS)
        handleNullState();
}

void GStreamerPipeline::handleNullState()
{
    GstElementPointer ended;
    {
        const std::lock_guard<std::mutex> guard(lock);
        if (!pipeline)
            return;
        state = idle;
        nullStateCondition.notify_one();
        ended = std::move(pipeline);
        source.reset();
        appSrc.reset();
    }
    release(std::move(ended));
    print(texts.pipelineReleased);
    tornDown();
}

void GStreamerPipeline::pushBuffer(const void *data, unsigned size)
{
    const std::unique_lock<std::mutex> guard(lock, std::try_to_lock);
    if (!guard) {
        print("Wait for record lock timed out\n");
        return;
    }
    if (state != running || !appSrc)
        return;
    GstBuffer *buffer = gst_buffer_new_allocate(nullptr, size, nullptr);
    gst_buffer_fill(buffer, 0, data, size);
    gst_app_src_push_buffer(GST_APP_SRC(appSrc.get()), buffer);
    ++frameCount;
    framePushed();
}

std::uint64_t GStreamerPipeline::getPosition()
{
    const std::lock_guard<std::mutex> guard(lock);
    return frameCount * 1000 / framesPerSecond;
}

void GStreamerPipeline::prepare(GstElement *) {}
void GStreamerPipeline::framePushed() {}
void GStreamerPipeline::tornDown() {}
