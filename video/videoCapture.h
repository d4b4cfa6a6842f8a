// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "error_handler.h"

#include <string>

class capture;

// The only capture object of the process: created by the first VideoCapture, never destroyed.
extern capture *capturePipeline;

// Starts and stops the camera pipelines. All instances share one capture object.
class VideoCapture
{
public:
    VideoCapture();
    VideoCapture(const VideoCapture &) = delete;
    VideoCapture &operator=(const VideoCapture &) = delete;
    virtual ~VideoCapture(); // stops both pipelines

    // startVideo() and startStreaming() throw std::runtime_error if the pipeline cannot be built.
    void startVideo();
    void stopVideo();
    void startStreaming(std::string ip, std::string port);
    void stopStreaming();
    // Grabs frames until a read fails; returns 1.
    int start();

private:
    CascadedCaptureStatusHandler *statusHandler; // never unregistered
};
