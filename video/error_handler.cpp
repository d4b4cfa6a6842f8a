// SPDX-License-Identifier: LicenseRef-KT6120
#include "error_handler.h"

void CascadedCaptureStatusHandler::videoCaptureErrorHandler(bool flag, std::string text)
{
    tellAll(&VideoCaptureStatusHandler::videoCaptureErrorHandler, flag, text);
}

void CascadedCaptureStatusHandler::jpegCompleteHandler(int number)
{
    tellAll(&VideoCaptureStatusHandler::jpegCompleteHandler, number);
}

void CascadedCaptureStatusHandler::jpegErrorHandler(int number, std::string text)
{
    tellAll(&VideoCaptureStatusHandler::jpegErrorHandler, number, text);
}

void CascadedCaptureStatusHandler::videoRecordingCompleteHandler()
{
    tellAll(&VideoCaptureStatusHandler::videoRecordingCompleteHandler);
}

void CascadedCaptureStatusHandler::videoShutdownCompleteHandler()
{
    tellAll(&VideoCaptureStatusHandler::videoShutdownCompleteHandler);
}

void CascadedCaptureStatusHandler::cameraDetachedHandler()
{
    tellAll(&VideoCaptureStatusHandler::cameraDetachedHandler);
}

void CascadedCaptureStatusHandler::cameraAttachedHandler()
{
    tellAll(&VideoCaptureStatusHandler::cameraAttachedHandler);
}

void CascadedPlaybackStatusHandler::videoPlaybackErrorHandler(std::string text)
{
    tellAll(&VideoPlaybackStatusHandler::videoPlaybackErrorHandler, text);
}

void CascadedPlaybackStatusHandler::videoPlaybackPausedHandler()
{
    tellAll(&VideoPlaybackStatusHandler::videoPlaybackPausedHandler);
}

void CascadedPlaybackStatusHandler::videoPlaybackRunningHandler()
{
    tellAll(&VideoPlaybackStatusHandler::videoPlaybackRunningHandler);
}

void CascadedPlaybackStatusHandler::videoShutdownCompleteHandler()
{
    tellAll(&VideoPlaybackStatusHandler::videoShutdownCompleteHandler);
}
