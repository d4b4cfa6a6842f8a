// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "error_handler.h"
#include "gstreamerpalpipeline.h"
#include "gstreamerstreampipeline.h"

// The camera's two pipelines and the fan-out that both report to. They read the same device:
// a caller that wants one stops the other first.
class capture
{
public:
    capture();

    // Reads frames from the camera and offers each to both pipelines, on the calling thread,
    // until the camera delivers no more. The camera module is loaded here; without it the
    // camera counts as one that does not open.
    void startCapture();

    CascadedCaptureStatusHandler statusFanOut;
    GStreamerPALPipeline palPipeline;
    GstreamerStreamPipeline streamPipeline;
};
