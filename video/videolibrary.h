// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "videoCapture.h"

#include <QObject>
#include <QString>

#include <string>

// The facade through which the rest of the program drives the camera, as slots on the event loop.
// startVideo() and startStreaming() throw std::runtime_error if the pipeline cannot be built. The
// pipelines report later errors, such as a missing camera.
class VideoLibrary : public QObject
{
    Q_OBJECT

public:
    VideoLibrary();

signals:
    void startCaptureSignal();

public slots:
    void initCapture();  // calls setGPIO() after 20 s
    void startCapture(); // blocks until the camera stops delivering frames
    void startVideo();
    void stopVideo();
    void startStreaming(std::string ip, std::string port);
    void startStreaming(QString ip, QString port); // up to the first NUL of each
    void stopStreaming();
    void setGPIO();
    void sleepyTime(); // runs the unit's shutdown script

private:
    VideoCapture camera;
};
