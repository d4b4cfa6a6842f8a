// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "error_handler.h"
#include "gstreamerpalpipeline.h"
#include "gstreamerstreampipeline.h"

// The two camera pipelines and the fan-out that both report to. Both open the same device, so a
// caller stops one before starting the other.
class capture
{
public:
    capture();

    // Reads frames from the camera and pushes each to both pipelines, on the calling thread,
    // until a read fails. Loads the camera module; if that is missing, behaves as if the camera
    // cannot be opened.
    void startCapture();

    CascadedCaptureStatusHandler statusFanOut;
    GStreamerPALPipeline palPipeline;
    GstreamerStreamPipeline streamPipeline;
};
