// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "feed.h"
#include "livepicture.h"

#include <QByteArray>
#include <QObject>

class Bench;
namespace fastcgi
{
class Exchange;
}

// What the unit's page has only on the bench: the live picture, the serial line, and faults to
// inject. Served to the web server at the bench's own paths; lives as long as the process.
class Panel : public QObject
{
    Q_OBJECT

public:
    Panel(Bench &where, const QByteArray &socket);

private:
    void handle(fastcgi::Exchange &exchange);
    void sendEvents(fastcgi::Exchange &exchange);
    void takeFault(fastcgi::Exchange &exchange);

    Bench &bench;
    Feed serial = Feed(500);
    LivePicture pal;
    LivePicture phone;
};
