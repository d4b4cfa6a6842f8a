// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "source.h"

#include <QByteArray>

#include <atomic>
#include <chrono>
#include <stdexcept>

// Why a browser gets no picture: HTTP status and text.
struct Refusal : std::runtime_error {
    Refusal(int code, const char *why) : std::runtime_error(why), status(code) {}
    int status;
};

// A browser that sees the picture through WebRTC.
class Viewer
{
public:
    // `offer`: the browser's session description. `address`: the unit's address at which the
    // browser reached it; the only one in the answer. Throws Refusal.
    Viewer(const QByteArray &offer, const QByteArray &address);
    ~Viewer();
    Viewer(const Viewer &) = delete;
    Viewer &operator=(const Viewer &) = delete;

    // The unit's session description.
    const QByteArray &answer() const { return description; }

    // Sends a frame to the browser; drops the frames before the first key frame. May be called in
    // a thread of GStreamer.
    void show(GstBuffer *frame);

    // The connection has ended or is silent.
    bool isGone() const;

private:
    void connect(const QByteArray &offer, const QByteArray &address);
    void limitAddresses(const QByteArray &address);
    void addStream(int type);
    void describe(int type, const QByteArray &parameters);
    void listen();
    static GstPadProbeReturn onHeard(GstPad *, GstPadProbeInfo *, gpointer viewer);

    Element pipeline;
    Element frames; // appsrc
    Element webrtc;
    QByteArray description;
    bool begun = false; // with a key frame
    std::atomic<std::chrono::steady_clock::time_point> heard;
};
