// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "freshness.h"
#include "programlog.h"
#include "readings.h"

#include <QByteArray>
#include <array>
#include <chrono>
#include <mutex>

// The unit's metrics in Prometheus' text format or in OpenMetrics.
class Metrics
{
public:
    explicit Metrics(Freshness &of);

    // The values are the unit's readings now; those that are missing or not a number are left out.
    QByteArray text(bool openMetrics, const readings::Values &values);
    // Counts new messages of the log; text() does so, too. A rotation loses what was not counted
    // before the next one.
    void count();

private:
    Freshness &freshness;
    const std::chrono::steady_clock::time_point began = std::chrono::steady_clock::now();
    std::mutex mutex;
    ProgramLog log = ProgramLog(0); // counts only what is logged after the start of this process
    std::array<quint64, std::size(logMessages)> logged = {};
};
