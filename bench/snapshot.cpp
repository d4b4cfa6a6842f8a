#include "snapshot.h"

#include "bench.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QUdpSocket>

#include <stdexcept>

namespace
{

constexpr quint16 decoderPort = 9083;
constexpr double patience = 20; // seconds: a key frame may be ten seconds away
constexpr char callerFolder[] = "/run/caller";

} // namespace

void takeSnapshot(Bench &bench, quint16 port, const QString &file)
{
    const QDir caller(QFileInfo::exists(callerFolder) ? callerFolder : ".");
    const QString path = caller.absoluteFilePath(file);

    QProcess decoder;
    decoder.setProcessChannelMode(QProcess::MergedChannels);
    decoder.start("gst-launch-1.0",
                  {"-q",
                   "udpsrc",
                   QString("port=%1").arg(decoderPort),
                   "address=127.0.0.1",
                   "caps=application/x-rtp,media=video,clock-rate=90000,encoding-name=H264",
                   "!",
                   "rtph264depay",
                   "wait-for-keyframe=true",
                   "!",
                   "h264parse",
                   "!",
                   "avdec_h264",
                   "!",
                   "videoconvert",
                   "!",
                   "pngenc",
                   "snapshot=true",
                   "!",
                   "filesink",
                   "location=" + path});
    QUdpSocket relay;
    RtpTap &tap = bench.tap(port);
    const auto connection =
        QObject::connect(&tap, &RtpTap::packet, &relay, [&](const QByteArray &rtp) {
            relay.writeDatagram(rtp, QHostAddress::LocalHost, decoderPort);
        });
    bench.runUntil([&] { return decoder.state() == QProcess::NotRunning; }, patience);
    QObject::disconnect(connection);
    if (decoder.state() != QProcess::NotRunning)
        decoder.kill();
    decoder.waitForFinished();
    if (decoder.exitStatus() != QProcess::NormalExit || decoder.exitCode() != 0
        || QFileInfo(path).size() == 0)
        throw std::runtime_error("no picture at port " + std::to_string(port) + "\n"
                                 + decoder.readAll().toStdString());
    bench.journal.note(Kind::Bench, "picture written to " + file.toLocal8Bit() + '\n');
}
