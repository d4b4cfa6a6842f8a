// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "gstreamerpipeline.h"

#include <string>

// Sends the camera as H.264 over RTP to the UDP address and port of a phone or tablet.
class GstreamerStreamPipeline : public GStreamerPipeline
{
public:
    explicit GstreamerStreamPipeline(VideoCaptureStatusHandler *handler);
    ~GstreamerStreamPipeline() override;

    // Address and port are inserted into the launch description verbatim. Throws
    // std::runtime_error if GStreamer cannot parse the result.
    void startStreaming(std::string ip, std::string port);
    void stopStreaming();

protected:
    void prepare(GstElement *built) override;
};
