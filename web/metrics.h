// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "catalogue.h"
#include "freshness.h"
#include "programlog.h"

#include <QByteArray>
#include <QVector>

#include <mutex>

// The unit's figures for Prometheus, in its own text format or in OpenMetrics.
class Metrics
{
public:
    Metrics(const Catalogue &known, Freshness &of);

    QByteArray text(bool openMetrics);

private:
    const Catalogue &catalogue;
    Freshness &freshness;
    std::mutex mutex;
    ProgramLog log = ProgramLog(0); // what was logged before this process began counts for nothing
    QVector<quint64> logged;        // a message of the catalogue each
};
