// SPDX-License-Identifier: LicenseRef-KT6120
#include "videoCapture.h"

#include "capture.h"

capture *capturePipeline = nullptr;

VideoCapture::VideoCapture()
{
    if (!capturePipeline)
        capturePipeline = new capture;
    statusHandler = new CascadedCaptureStatusHandler;
    capturePipeline->statusFanOut.registerObserver(statusHandler);
}

VideoCapture::~VideoCapture()
{
    stopVideo();
    stopStreaming();
}

void VideoCapture::startVideo()
{
    capturePipeline->palPipeline.startVideo();
}

void VideoCapture::stopVideo()
{
    capturePipeline->palPipeline.stopVideo();
}

void VideoCapture::startStreaming(std::string ip, std::string port)
{
    capturePipeline->streamPipeline.startStreaming(ip, port);
}

void VideoCapture::stopStreaming()
{
    capturePipeline->streamPipeline.stopStreaming();
}

int VideoCapture::start()
{
    capturePipeline->startCapture();
    return 1;
}
