// SPDX-License-Identifier: LicenseRef-KT6120
#include "snapshot.h"

#include "bench.h"
#include "files.h"

#include <QFileInfo>
#include <QProcess>

#include <stdexcept>

namespace
{

constexpr double patience = 20; // seconds: a key frame may be ten seconds away

} // namespace

void takeSnapshot(Bench &bench, quint16 port, const QString &file)
{
    const QString path = files::ofCaller(file);

    const RtpTap &tap = bench.tap(port);
    if (!bench.runUntil([&tap] { return !tap.recent().isEmpty(); }, patience))
        throw std::runtime_error("no key frame at port " + std::to_string(port));

    // Everything since the key frame is decoded; the leaky queue lets the last picture through.
    QProcess decoder;
    decoder.setProcessChannelMode(QProcess::MergedChannels);
    decoder.start("gst-launch-1.0",
                  {"-q",
                   "fdsrc",
                   "!",
                   "application/x-rtp-stream,media=video,clock-rate=90000,encoding-name=H264",
                   "!",
                   "rtpstreamdepay",
                   "!",
                   "rtph264depay",
                   "!",
                   "h264parse",
                   "!",
                   "avdec_h264",
                   "!",
                   "queue",
                   "leaky=downstream",
                   "max-size-buffers=1",
                   "!",
                   "videoconvert",
                   "!",
                   "pngenc",
                   "!",
                   "multifilesink",
                   "location=" + path});
    decoder.write(tap.recent());
    decoder.closeWriteChannel();
    bench.runUntil([&decoder] { return decoder.state() == QProcess::NotRunning; }, patience);
    if (decoder.state() != QProcess::NotRunning)
        decoder.kill();
    decoder.waitForFinished();
    if (decoder.exitStatus() != QProcess::NormalExit || decoder.exitCode() != 0
        || QFileInfo(path).size() == 0)
        throw std::runtime_error("no picture at port " + std::to_string(port) + "\n"
                                 + decoder.readAll().toStdString());
    bench.journal.note(Kind::Bench, "picture written to " + file.toLocal8Bit() + '\n');
}
