// SPDX-License-Identifier: LicenseRef-KT6120
#include "rtptap.h"

#include "phonenetwork.h"

#include <QSocketNotifier>
#include <QtEndian>

#include <array>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <memory>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr qint64 window = 2000; // ms
constexpr double stampsPerSecond = 90000;

// The payload of a UDP datagram to the port; empty when the packet is something else.
QByteArray payloadFor(quint16 port, const QByteArray &packet)
{
    const auto *bytes = reinterpret_cast<const uchar *>(packet.constData());
    const int header = packet.isEmpty() ? 0 : (bytes[0] & 0x0f) * 4;
    if (packet.size() < header + 8 || bytes[9] != IPPROTO_UDP
        || qFromBigEndian<quint16>(bytes + header + 2) != port)
        return {};
    return packet.mid(header + 8);
}

// A key frame is led by the sequence parameters, alone or first in an aggregate.
bool startsKeyFrame(const QByteArray &rtp)
{
    constexpr int header = 12;
    constexpr int sequenceParameters = 7;
    constexpr int aggregate = 24;
    const int type = rtp.size() > header ? rtp[header] & 0x1f : 0;
    return type == sequenceParameters
           || (type == aggregate && rtp.size() > header + 3
               && (rtp[header + 3] & 0x1f) == sequenceParameters);
}

} // namespace

RtpTap::RtpTap(quint16 number, const PhoneNetwork *phone) : port(number)
{
    {
        const auto inPhone = phone ? std::make_unique<PhoneNetwork::InPhone>(*phone) : nullptr;
        wire = socket(AF_PACKET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, htons(ETH_P_IP));
    }
    if (wire < 0)
        throw std::runtime_error("cannot tap the wire");
    auto *notifier = new QSocketNotifier(wire, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &RtpTap::read);
    clock.start();
}

RtpTap::~RtpTap()
{
    ::close(wire);
}

double RtpTap::rate() const
{
    if (frames.empty() || frames.back().arrival < clock.elapsed() - window)
        return 0;
    const quint32 span = frames.back().stamp - frames.front().stamp;
    return span == 0 ? 0 : double(frames.size() - 1) * stampsPerSecond / span;
}

QByteArray RtpTap::recent() const
{
    return rate() > 0 ? kept : QByteArray();
}

void RtpTap::read()
{
    std::array<char, 65536> buffer{};
    sockaddr_ll from{};
    for (;;) {
        socklen_t length = sizeof from;
        const ssize_t size = recvfrom(wire, buffer.data(), buffer.size(), 0,
                                      reinterpret_cast<sockaddr *>(&from), &length);
        if (size <= 0)
            return;
        if (from.sll_pkttype == PACKET_OUTGOING) // the loopback shows each packet twice
            continue;
        const QByteArray rtp = payloadFor(port, QByteArray(buffer.data(), int(size)));
        if (rtp.size() < 12)
            continue;
        emit arrived();
        if (rtp[1] & 0x80) { // the marker: the last packet of a frame
            const auto stamp = qFromBigEndian<quint32>(rtp.constData() + 4);
            frames.push_back({clock.elapsed(), stamp});
            while (frames.front().arrival < frames.back().arrival - window)
                frames.pop_front();
        }
        if (startsKeyFrame(rtp))
            kept.clear();
        else if (kept.isEmpty())
            continue;
        const quint16 frameLength = qToBigEndian(quint16(rtp.size()));
        const QByteArray framed =
            QByteArray(reinterpret_cast<const char *>(&frameLength), sizeof frameLength) + rtp;
        kept += framed;
        emit packet(framed);
    }
}
