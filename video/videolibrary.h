// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "videoCapture.h"

#include <QObject>
#include <QString>

#include <string>

// The camera as the rest of the system drives it: slots on the event loop. A start whose
// pipeline cannot be built throws std::runtime_error; everything later, such as a camera that
// is missing, is reported by the pipelines themselves.
class VideoLibrary : public QObject
{
    Q_OBJECT

public:
    VideoLibrary();

signals:
    void startCaptureSignal();

public slots:
    void initCapture();  // arms the GPIO job
    void startCapture(); // blocks for as long as the camera delivers frames
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
