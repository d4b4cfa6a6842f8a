// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "gstreamerpipeline.h"

#include <string>

// The camera picture for a phone or tablet: H.264 in RTP packets to a UDP address and port.
class GstreamerStreamPipeline : public GStreamerPipeline
{
public:
    explicit GstreamerStreamPipeline(VideoCaptureStatusHandler *handler);
    ~GstreamerStreamPipeline() override;

    // Address and port go into the launch description as they are; a text that it cannot be
    // parsed with fails the start.
    void startStreaming(std::string ip, std::string port);
    void stopStreaming();

protected:
    void prepare(GstElement *built) override;
};
