// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <functional>
#include <gst/gst.h>
#include <memory>

struct Unref {
    void operator()(gpointer object) const { gst_object_unref(object); }
};
using Element = std::unique_ptr<GstElement, Unref>;

// Throws std::runtime_error if an element is missing.
Element launch(const char *line);
Element find(const Element &bin, const char *name);
// Whether a pipeline has reported its end or an error, which is printed.
bool hasFailed(const Element &pipeline);

// The unit's picture as it leaves the unit: from whichever of the streams has packets. There is one
// at a time, because only one process can use the camera.
class Source
{
public:
    // Called in a thread of GStreamer with each frame: one whole picture as H.264.
    using Taker = std::function<void(GstBuffer *)>;

    explicit Source(Taker taker);
    ~Source();
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;

    // Restarts the receivers after an error; call it every second or so.
    void look();

private:
    void start();
    void stop();

    Taker take;
    Element pipeline;
};
