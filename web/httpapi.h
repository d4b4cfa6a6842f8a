// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "freshness.h"
#include "metrics.h"
#include "programlog.h"
#include "readings.h"

#include <QJsonObject>
#include <atomic>
#include <chrono>
#include <list>
#include <mutex>

namespace fastcgi
{
class Exchange;
}

// Answers the requests of the unit's page and of Prometheus, in any number of threads. A file of
// the unit that cannot be read counts as missing; a refused request gets a status and its reason in
// JSON.
class HttpApi
{
public:
    HttpApi();

    void handle(fastcgi::Exchange &exchange);
    // Follows store and log without viewers, too. Call it every few seconds.
    void look();

private:
    void sendState(fastcgi::Exchange &exchange);
    void sendEvents(fastcgi::Exchange &exchange);
    void sendHistory(fastcgi::Exchange &exchange);
    void sendCheck(fastcgi::Exchange &exchange);
    void sendMetrics(fastcgi::Exchange &exchange);
    void takeCommand(fastcgi::Exchange &exchange);

    readings::Values readUnit();
    QJsonObject unitState(const readings::Values &values);
    bool mayCommandNow();
    quint64 beginViewing();
    bool isViewing(quint64 viewer);
    void endViewing(quint64 viewer);

    Freshness freshness;
    Metrics metrics;
    std::atomic<int> histories = 0;
    std::atomic<unsigned> commands = 0; // carried out

    std::mutex logMutex;
    ProgramLog log; // the messages of picture and sonde may be older than the lines of a viewer

    std::mutex viewersMutex;
    std::list<quint64> viewers; // the oldest first
    quint64 lastViewer = 0;

    std::mutex rateMutex;
    double allowance = 0; // commands that are accepted at once
    std::chrono::steady_clock::time_point counted;
};
