// SPDX-License-Identifier: LicenseRef-KT6120
#include "metrics.h"

#include "keys.h"
#include "readings.h"

#include <chrono>
#include <cmath>

using std::chrono::steady_clock;

namespace
{

constexpr char prefix[] = "kt6120_";
constexpr char total[] = "_total";

class Exposition
{
public:
    explicit Exposition(bool inOpenMetrics) : openMetrics(inOpenMetrics) {}

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

// Labels of the versions that the store has.
QByteArray versions(const readings::Values &values)
{
    QByteArrayList labels;
    for (const auto &[label, key] : {std::pair("version", keys::softwareVersion.name),
                                     std::pair("mcu_version", keys::mcuVersion.name)}) {
        const QByteArray value = values.value(key).toUtf8();
        if (!value.isEmpty())
            labels.append(label + ('=' + quoted(value)));
    }
    return labels.join(',');
}

double exported(const readings::Reading &reading, const readings::Values &values)
{
    const double value = readings::number(reading, values);
    if (reading.kind == readings::Kind::Lamp)
        return std::isnan(value) ? value : qMax(0.0, value) / 100;
    return value * reading.scale;
}

// Not for a silent unit: Prometheus would take old values for new ones.
void addReadings(Exposition &exposition, const readings::Values &values)
{
    const QByteArray labels = versions(values);
    if (!labels.isEmpty()) {
        exposition.family("build_info", "Versions of the unit's program and its microcontroller.");
        exposition.sample("build_info", labels, 1);
    }
    for (const readings::Reading &reading : readings::all()) {
        if (!reading.metric)
            continue;
        if (reading.help)
            exposition.family(reading.metric, reading.help);
        const double value = exported(reading, values);
        if (!std::isnan(value))
            exposition.sample(reading.metric, reading.labels, value);
    }
    exposition.family("reading_present", "1 if the unit has this reading, 0 if it is missing.");
    for (const readings::Reading &reading : readings::all()) {
        if (reading.kind == readings::Kind::Number && !reading.absent)
            exposition.sample("reading_present", "reading=" + quoted(reading.label),
                              std::isnan(exported(reading, values)) ? 0 : 1);
    }
}

} // namespace

Metrics::Metrics(Freshness &of) : freshness(of)
{
    log.take();
}

void Metrics::count()
{
    const std::lock_guard lock(mutex);
    const QList<ProgramLog::Line> lines = log.take();
    for (const ProgramLog::Line &line : lines) {
        if (line.message)
            ++logged[size_t(line.message - logMessages)];
    }
}

QByteArray Metrics::text(bool openMetrics, const readings::Values &values)
{
    count();
    const std::lock_guard lock(mutex);
    Exposition exposition(openMetrics);
    const Freshness::State state = freshness.look();
    exposition.family("program_up", "1 while the unit's program writes its status store, else 0.");
    exposition.sample("program_up", {}, state.silent ? 0 : 1);
    if (state.age >= 0) {
        exposition.family("store_age_seconds", "Since the status store was last seen to change.");
        exposition.sample("store_age_seconds", {}, state.age);
    }
    if (!state.silent)
        addReadings(exposition, values);
    exposition.family("exporter_age_seconds", "Since this exporter started.");
    exposition.sample("exporter_age_seconds", {},
                      std::chrono::duration<double>(steady_clock::now() - began).count());
    exposition.family("log_messages_total",
                      "Messages in the program log since this exporter started.");
    for (const LogMessage &message : logMessages) {
        const char *severity = message.type == 1   ? "warning"
                               : message.type == 2 ? "critical"
                                                   : "information";
        exposition.sample("log_messages_total",
                          "severity=\"" + QByteArray(severity)
                              + "\",message=" + quoted(QByteArray(message.text).trimmed()),
                          double(logged[size_t(&message - logMessages)]));
    }
    return exposition.ended();
}
