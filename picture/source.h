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
// Whether a pipeline has reported an error, which is printed.
bool hasFailed(const Element &pipeline);

// The unit's picture as it leaves the unit: from whichever of the streams has packets. There is one
// at a time, because only one process can use the camera.
class Source
{
public:
    // Called in one of GStreamer's threads with each frame, which is H.264 of a whole picture.
    using Taker = std::function<void(GstBuffer *)>;

    explicit Source(Taker taker);
    ~Source();
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;

    // Receives again after an error; to be called now and then.
    void look();

private:
    void start();
    void stop();

    Taker take;
    Element pipeline;
};
