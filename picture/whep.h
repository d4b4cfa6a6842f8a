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

// Answers the requests for the picture, as WHEP (WebRTC-HTTP egress protocol) has them: a browser
// posts an offer, gets an answer and the path of its viewing, and deletes that in the end.
class Whep
{
public:
    Whep();

    void handle(fastcgi::Exchange &exchange);

    // Forgets viewers that have gone. False once there has been none for some seconds.
    bool look();

private:
    void begin(fastcgi::Exchange &exchange);
    void end(fastcgi::Exchange &exchange, const QByteArray &name);

    std::mutex mutex; // guards the list: frames come in another thread
    std::map<QByteArray, std::unique_ptr<Viewer>> viewers;
    std::chrono::steady_clock::time_point used; // last seen with a viewer
    Source source;
};
