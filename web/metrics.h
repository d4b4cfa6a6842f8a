// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "freshness.h"
#include "programlog.h"

#include <QByteArray>
#include <array>
#include <mutex>

// The unit's figures for Prometheus, in its own text format or in OpenMetrics.
class Metrics
{
public:
    explicit Metrics(Freshness &of);

    QByteArray text(bool openMetrics);

private:
    Freshness &freshness;
    std::mutex mutex;
    ProgramLog log = ProgramLog(0); // what was logged before this process began counts for nothing
    std::array<quint64, std::size(logMessages)> logged = {};
};
