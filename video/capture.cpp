// SPDX-License-Identifier: LicenseRef-KT6120
#include "capture.h"

#include "camera.h"
#include "console.h"
#include "logmessages.h"
#include "paths.h"

#include <QCoreApplication>
#include <QDebug>
#include <QLibrary>

#include <algorithm>
#include <memory>

namespace
{

constexpr int frameHeight = 576;
constexpr int frameWidth = 720;
constexpr int framesPerSecond = 25;
constexpr double bytesPerPixel = 3;

std::unique_ptr<Camera> openCamera()
{
    QLibrary module(QCoreApplication::applicationDirPath() + '/' + grabModuleFile);
    const auto open = reinterpret_cast<OpenCameraFunction>(module.resolve(openCameraSymbol));
    if (!open) {
        qWarning() << messages::noCameraModule << module.errorString();
        return nullptr;
    }
    return std::unique_ptr<Camera>(open(paths::cameraIndex));
}

} // namespace

capture::capture() : palPipeline(&statusFanOut), streamPipeline(&statusFanOut) {}

void capture::startCapture()
{
    qDebug() << "starting capture";
    const std::unique_ptr<Camera> camera = openCamera();
    if (!camera || !camera->isOpen())
        print("Could not open\n");
    print("capture open");
    if (camera)
        camera->request(frameHeight, frameWidth, framesPerSecond);

    Camera::Frame frame;
    if (!camera || !camera->read(frame))
        print("error\n");
    const auto frameSize = std::size_t(double(frame.rows) * double(frame.columns) * bytesPerPixel);

    while (camera && camera->read(frame)) {
        // A later frame may be smaller than the first.
        const auto size = unsigned(std::min(frameSize, frame.size));
        palPipeline.pushBuffer(frame.data, size);
        streamPipeline.pushBuffer(frame.data, size);
    }
    print("Cannot read frame from video\n");
}
