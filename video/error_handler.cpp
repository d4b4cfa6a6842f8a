// SPDX-License-Identifier: LicenseRef-KT6120
#include "error_handler.h"

void CascadedCaptureStatusHandler::videoCaptureErrorHandler(bool flag, std::string text)
{
    notifyAll(&VideoCaptureStatusHandler::videoCaptureErrorHandler, flag, text);
}

void CascadedCaptureStatusHandler::jpegCompleteHandler(int number)
{
    notifyAll(&VideoCaptureStatusHandler::jpegCompleteHandler, number);
}

void CascadedCaptureStatusHandler::jpegErrorHandler(int number, std::string text)
{
    notifyAll(&VideoCaptureStatusHandler::jpegErrorHandler, number, text);
}

void CascadedCaptureStatusHandler::videoRecordingCompleteHandler()
{
    notifyAll(&VideoCaptureStatusHandler::videoRecordingCompleteHandler);
}

void CascadedCaptureStatusHandler::videoShutdownCompleteHandler()
{
    notifyAll(&VideoCaptureStatusHandler::videoShutdownCompleteHandler);
}

void CascadedCaptureStatusHandler::cameraDetachedHandler()
{
    notifyAll(&VideoCaptureStatusHandler::cameraDetachedHandler);
}

void CascadedCaptureStatusHandler::cameraAttachedHandler()
{
    notifyAll(&VideoCaptureStatusHandler::cameraAttachedHandler);
}

void CascadedPlaybackStatusHandler::videoPlaybackErrorHandler(std::string text)
{
    notifyAll(&VideoPlaybackStatusHandler::videoPlaybackErrorHandler, text);
}

void CascadedPlaybackStatusHandler::videoPlaybackPausedHandler()
{
    notifyAll(&VideoPlaybackStatusHandler::videoPlaybackPausedHandler);
}

void CascadedPlaybackStatusHandler::videoPlaybackRunningHandler()
{
    notifyAll(&VideoPlaybackStatusHandler::videoPlaybackRunningHandler);
}

void CascadedPlaybackStatusHandler::videoShutdownCompleteHandler()
{
    notifyAll(&VideoPlaybackStatusHandler::videoShutdownCompleteHandler);
}
