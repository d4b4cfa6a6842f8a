// SPDX-License-Identifier: LicenseRef-KT6120
#include "videolibrary.h"

#include "childprocess.h"
#include "gpio.h"
#include "logmessages.h"
#include "paths.h"

#include <QAbstractEventDispatcher>
#include <QDebug>
#include <QTimer>

#include <chrono>

using namespace std::chrono_literals;

namespace
{

constexpr auto gpioDelay = 20s;
constexpr auto scriptWait = 10s;

} // namespace

VideoLibrary::VideoLibrary()
{
    // Bus messages of the pipelines are dispatched by GLib's main context.
    const QAbstractEventDispatcher *dispatcher = QAbstractEventDispatcher::instance();
    if (!dispatcher || !dispatcher->inherits("QEventDispatcherGlib"))
        qWarning() << messages::noGlib;
}

void VideoLibrary::initCapture()
{
    QTimer::singleShot(gpioDelay, Qt::PreciseTimer, this, &VideoLibrary::setGPIO);
}

void VideoLibrary::startCapture()
{
    camera.start();
}

void VideoLibrary::startVideo()
{
    camera.startVideo();
}

void VideoLibrary::stopVideo()
{
    camera.stopVideo();
}

void VideoLibrary::startStreaming(std::string ip, std::string port)
{
    camera.startStreaming(ip, port);
}

void VideoLibrary::startStreaming(QString ip, QString port)
{
    startStreaming(std::string(ip.toUtf8().constData()), std::string(port.toUtf8().constData()));
}

void VideoLibrary::stopStreaming()
{
    camera.stopStreaming();
}

void VideoLibrary::setGPIO()
{
    childprocess::run(this, {paths::gpioWriteScript, {gpio::startedUp, "1"}}, scriptWait);
}

void VideoLibrary::sleepyTime()
{
    childprocess::run(this, childprocess::fromLine(paths::shutdownCommand), scriptWait);
}
