// SPDX-License-Identifier: LicenseRef-KT6120
#include "livepicture.h"

#include "bench.h"

#include <chrono>

using namespace std::chrono_literals;

namespace
{

constexpr auto lookInterval = 300ms;
constexpr int stopLimit = 2000; // ms
constexpr char imageEnd[] = "\xff\xd9";

} // namespace

LivePicture::LivePicture(Bench &where, quint16 number) : bench(where), port(number)
{
    connect(&timer, &QTimer::timeout, this, &LivePicture::look);
    connect(&decoder, &QProcess::readyReadStandardOutput, this, &LivePicture::split);
    timer.start(lookInterval);
}

LivePicture::~LivePicture()
{
    decoder.kill();
    decoder.waitForFinished(stopLimit);
}

double LivePicture::rate() const
{
    return viewers > 0 ? bench.tap(port).rate() : 0;
}

// A stream that pauses gets a new decoder, from its next key frame on.
void LivePicture::look()
{
    const bool wanted = viewers > 0 && !bench.tap(port).recent().isEmpty();
    if (wanted && decoder.state() == QProcess::NotRunning) {
        start();
    } else if (!wanted && decoder.state() != QProcess::NotRunning) {
        disconnect(&bench.tap(port), nullptr, this, nullptr);
        decoder.kill();
    }
}

void LivePicture::start()
{
    decoded.clear();
    RtpTap &tap = bench.tap(port);
    decoder.start("gst-launch-1.0",
                  QString("-q fdsrc ! application/x-rtp-stream,media=video,clock-rate=90000,"
                          "encoding-name=H264 ! rtpstreamdepay ! rtph264depay ! h264parse ! "
                          "avdec_h264 ! videorate drop-only=true max-rate=8 ! videoconvert ! "
                          "videoscale ! video/x-raw,width=360,height=288 ! jpegenc ! fdsink")
                      .split(' '));
    decoder.write(tap.recent());
    connect(&tap, &RtpTap::packet, this,
            [this](const QByteArray &packet) { decoder.write(packet); });
}

void LivePicture::split()
{
    decoded += decoder.readAllStandardOutput();
    for (int end = 0; (end = int(decoded.indexOf(imageEnd))) >= 0;) {
        images.put(decoded.left(end + 2));
        decoded.remove(0, end + 2);
    }
}
