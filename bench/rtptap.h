// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>

#include <deque>

class PhoneNetwork;

// Listens in on one UDP port of the video without taking a packet from its receiver, and
// counts the frames.
class RtpTap : public QObject
{
    Q_OBJECT

public:
    // Taps the wire at the phone, or, without one, in this world. Throws std::runtime_error where
    // it cannot be tapped.
    RtpTap(quint16 number, const PhoneNetwork *phone);
    ~RtpTap() override;

    // Frames a second by the picture's own clock, over those that came in the last two seconds; 0
    // when there were not two.
    double rate() const;

    // The packets from the last key frame on, each led by its length in two bytes (the framing
    // of RTP over a stream); empty before the first key frame and when nothing came lately.
    QByteArray recent() const;

signals:
    void arrived(); // a packet
    // One in the framing of recent(), from the first key frame on.
    void packet(const QByteArray &framed);

private:
    void read();

    quint16 port;
    int wire = -1;
    QElapsedTimer clock;
    struct Frame {
        qint64 arrival; // of its last packet, ms
        quint32 stamp;  // its time in the picture
    };
    std::deque<Frame> frames; // oldest first
    QByteArray kept;          // see recent()
};
