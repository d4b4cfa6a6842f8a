// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "source.h"
#include "viewer.h"

#include <QByteArray>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>

namespace fastcgi
{
class Exchange;
}

// Answers the requests for the picture, which are those of WHEP (WebRTC-HTTP egress protocol): a
// browser posts an offer, gets an answer and a path, and deletes that path when it stops watching.
class Whep
{
public:
    Whep();

    void handle(fastcgi::Exchange &exchange);

    // Removes viewers that have gone. False once there has been none for ten seconds.
    bool look();

private:
    void begin(fastcgi::Exchange &exchange);
    void end(fastcgi::Exchange &exchange, const QByteArray &name);

    std::mutex mutex; // guards the list: frames come in another thread
    std::map<QByteArray, std::unique_ptr<Viewer>> viewers;
    std::chrono::steady_clock::time_point used; // last seen with a viewer
    Source source;
};
