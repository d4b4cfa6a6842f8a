// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "gstreamerpipeline.h"

#include <string>

// The unit's local picture: the camera as H.264 in RTP packets to UDP port 8083 of the unit
// itself, where the receiver script drives the PAL output.
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

    std::string flushPath; // file to write through to the disk at teardown
};
