// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "error_handler.h"

#include <string>

class capture;

// The one capture object of the process: made with the first VideoCapture, never destroyed.
extern capture *capturePipeline;

// Owner of the camera. Every one of them drives the same capture object.
class VideoCapture
{
public:
    VideoCapture();
    VideoCapture(const VideoCapture &) = delete;
    VideoCapture &operator=(const VideoCapture &) = delete;
    virtual ~VideoCapture(); // stops both pipelines

    // The starts throw std::runtime_error when the pipeline cannot be built.
    void startVideo();
    void stopVideo();
    void startStreaming(std::string ip, std::string port);
    void stopStreaming();
    // Grabs frames until the camera delivers no more; always 1.
    int start();

private:
    CascadedCaptureStatusHandler *statusHandler; // stays registered for good
};
