#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>

#include <deque>

class Network;

// Listens in on one UDP port of the video without taking a packet from its receiver, and
// counts the frames.
class RtpTap : public QObject
{
    Q_OBJECT

public:
    // Port 8083 is tapped on the unit's loopback, any other at the phone. Throws
    // std::runtime_error where the wire cannot be tapped.
    RtpTap(quint16 number, const Network &network);
    ~RtpTap() override;

    // Frames a second over the last two seconds; 0 before there were two.
    double rate() const;

    // The packets from the last key frame on, each led by its length in two bytes (the framing
    // of RTP over a stream); empty before the first key frame and when nothing came lately.
    QByteArray recent() const;

private:
    void read();

    quint16 port;
    int wire = -1;
    QElapsedTimer clock;
    std::deque<qint64> frames; // when each ended, ms, oldest first
    QByteArray kept;           // see recent()
};
