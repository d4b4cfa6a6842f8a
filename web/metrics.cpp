// SPDX-License-Identifier: LicenseRef-KT6120
#include "metrics.h"

#include "readings.h"

#include <QDateTime>

#include <cmath>

namespace
{

constexpr char prefix[] = "kt6120_";
constexpr char total[] = "_total";

class Page
{
public:
    explicit Page(bool inOpenMetrics) : openMetrics(inOpenMetrics) {}

    void family(QByteArray name, const char *help)
    {
        const bool counts = name.endsWith(total);
        if (counts && openMetrics)
            name.chop(int(sizeof total) - 1);
        text += "# HELP " + (prefix + name) + ' ' + help + "\n# TYPE " + (prefix + name)
                + (counts ? " counter\n" : " gauge\n");
    }

    void sample(const QByteArray &name, const QByteArray &labels, double value)
    {
        text += prefix + name;
        if (!labels.isEmpty())
            text += '{' + labels + '}';
        text += ' ' + QByteArray::number(value, 'g', 12) + '\n';
    }

    QByteArray ended() { return openMetrics ? text + "# EOF\n" : text; }

private:
    bool openMetrics;
    QByteArray text;
};

QByteArray quoted(QByteArray value)
{
    value.replace('\\', "\\\\").replace('"', "\\\"").replace('\n', "\\n");
    return '"' + value + '"';
}

double exported(const readings::Reading &reading, const readings::Values &values)
{
    const double value = readings::number(reading, values);
    if (reading.kind == readings::Kind::Lamp)
        return std::isnan(value) ? value : qMax(0.0, value) / 100;
    return value * reading.scale;
}

} // namespace

Metrics::Metrics(const Catalogue &known) : catalogue(known), logged(known.messages().size())
{
    log.take();
}

QByteArray Metrics::text(bool openMetrics)
{
    const std::lock_guard lock(mutex);
    const QList<ProgramLog::Line> lines = log.take();
    for (const ProgramLog::Line &line : lines) {
        const int message = catalogue.find(line.type, line.text);
        if (message >= 0)
            ++logged[message];
    }

    Page page(openMetrics);
    const readings::Values values = readings::read();
    page.family("build_info", "Versions of the unit's program and its microcontroller.");
    page.sample("build_info",
                "version=" + quoted(values.value("Compute/SoftwareVersion").toUtf8())
                    + ",mcu_version=" + quoted(values.value("MCU/Version").toUtf8()),
                1);
    const double age = readings::storeAge();
    page.family("store_modified_timestamp_seconds",
                "When the unit last wrote its status store; 0 when there is none.");
    page.sample("store_modified_timestamp_seconds", {},
                age < 0 ? 0 : double(QDateTime::currentMSecsSinceEpoch()) / 1000 - age);
    for (int at = 0; at < readings::count; ++at) {
        const readings::Reading &reading = readings::table[at];
        if (!reading.metric)
            continue;
        if (reading.help)
            page.family(reading.metric, reading.help);
        const double value = exported(reading, values);
        if (!std::isnan(value))
            page.sample(reading.metric, reading.labels, value);
    }
    page.family("log_messages_total", "Messages in the program log since this exporter started.");
    for (int at = 0; at < logged.size(); ++at) {
        const Catalogue::Message &message = catalogue.messages()[at];
        const char *severity = message.type == 1   ? "warning"
                               : message.type == 2 ? "critical"
                                                   : "information";
        page.sample("log_messages_total",
                    "severity=\"" + QByteArray(severity)
                        + "\",message=" + quoted(message.text.trimmed()),
                    double(logged[at]));
    }
    return page.ended();
}
