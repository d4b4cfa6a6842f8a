// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "gstreamerpipeline.h"

#include <string>

// The local picture: sends the camera as H.264 over RTP to UDP port 8083 of the loopback address,
// where the receiver script drives the PAL output.
class GStreamerPALPipeline : public GStreamerPipeline
{
public:
    explicit GStreamerPALPipeline(VideoCaptureStatusHandler *handler);
    ~GStreamerPALPipeline() override;

    void startVideo();
    void stopVideo();

protected:
    void framePushed() override;
    void tornDown() override;

    std::string flushPath; // file that is synced to disk at teardown
};
