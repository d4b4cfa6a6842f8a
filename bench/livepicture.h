// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "feed.h"

#include <QByteArray>
#include <QProcess>
#include <QTimer>

#include <atomic>

class Bench;

// The picture at one port of the video as a sequence of JPEG images. Decodes only while somebody
// looks.
class LivePicture : public QObject
{
    Q_OBJECT

public:
    LivePicture(Bench &where, quint16 number);
    ~LivePicture() override;

    Feed images = Feed(2);
    std::atomic<int> viewers = 0;

    double rate() const; // frames a second on the wire; 0 while nobody looks

private:
    void look();
    void start();
    void split();

    Bench &bench;
    const quint16 port;
    QTimer timer;
    QProcess decoder;
    QByteArray decoded;
};
