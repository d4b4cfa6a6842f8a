// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <mutex>
#include <set>
#include <string>

// Receives the state reports of the capture pipelines.
class VideoCaptureStatusHandler
{
public:
    virtual void videoCaptureErrorHandler(bool flag, std::string text) = 0;
    virtual void jpegCompleteHandler(int number) = 0;
    virtual void jpegErrorHandler(int number, std::string text) = 0;
    virtual void videoRecordingCompleteHandler() = 0;
    virtual void videoShutdownCompleteHandler() = 0;
    virtual void cameraDetachedHandler() = 0;
    virtual void cameraAttachedHandler() = 0;
    virtual ~VideoCaptureStatusHandler() = default;
};

// Receives the state reports of playback.
class VideoPlaybackStatusHandler
{
public:
    virtual void videoPlaybackErrorHandler(std::string text) = 0;
    virtual void videoPlaybackPausedHandler() = 0;
    virtual void videoPlaybackRunningHandler() = 0;
    virtual void videoShutdownCompleteHandler() = 0;
    virtual ~VideoPlaybackStatusHandler() = default;
};

// Base of both fan-outs: forwards every report to all registered observers, in ascending order of
// their addresses. Any thread may report, register and remove. The lock is held during a report,
// so an observer must not call back into the fan-out. Observers are not owned and must outlive
// their registration.
template <class StatusHandler>
class CascadedStatusHandler : public StatusHandler
{
public:
    CascadedStatusHandler() = default;
    CascadedStatusHandler(const CascadedStatusHandler &) = delete;
    CascadedStatusHandler &operator=(const CascadedStatusHandler &) = delete;

    // Registering an observer twice or removing an unregistered one has no effect.
    virtual void registerObserver(StatusHandler *observer)
    {
        const std::lock_guard<std::mutex> guard(lock);
        observers.insert(observer);
    }

    virtual void removeObserver(StatusHandler *observer)
    {
        const std::lock_guard<std::mutex> guard(lock);
        observers.erase(observer);
    }

protected:
    // Calls one operation on every observer; each gets its own copies of the arguments.
    template <class... Parameters>
    void notifyAll(void (StatusHandler::*report)(Parameters...), const Parameters &...arguments)
    {
        const std::lock_guard<std::mutex> guard(lock);
        for (StatusHandler *observer : observers)
            (observer->*report)(arguments...);
    }

private:
    std::set<StatusHandler *> observers;
    std::mutex lock;
};

class CascadedCaptureStatusHandler : public CascadedStatusHandler<VideoCaptureStatusHandler>
{
public:
    void videoCaptureErrorHandler(bool flag, std::string text) override;
    void jpegCompleteHandler(int number) override;
    void jpegErrorHandler(int number, std::string text) override;
    void videoRecordingCompleteHandler() override;
    void videoShutdownCompleteHandler() override;
    void cameraDetachedHandler() override;
    void cameraAttachedHandler() override;
};

class CascadedPlaybackStatusHandler : public CascadedStatusHandler<VideoPlaybackStatusHandler>
{
public:
    void videoPlaybackErrorHandler(std::string text) override;
    void videoPlaybackPausedHandler() override;
    void videoPlaybackRunningHandler() override;
    void videoShutdownCompleteHandler() override;
};
