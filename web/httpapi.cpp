// SPDX-License-Identifier: LicenseRef-KT6120
#include "httpapi.h"

#include "commandwriter.h"
#include "fastcgi.h"
#include "gate.h"
#include "history.h"
#include "lamp.h"
#include "paths.h"
#include "programlog.h"
#include "readings.h"
#include "safefile.h"
#include "timestamp.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QSysInfo>
#include <QTimeZone>

#include <algorithm>
#include <iterator>
#include <optional>

using namespace std::chrono_literals;
using gate::refuse;
using std::chrono::steady_clock;

namespace
{

constexpr std::size_t mostViewers = 8;
constexpr int mostHistories = 4; // at once; each holds a thread until the client has read it
constexpr auto lookInterval = 250ms;
// The page reconnects after three missed ones. The web server notices that a viewer is gone when it
// sends to it for the second time.
constexpr auto heartbeat = 2s;
constexpr int logLines = 50;                // that a new viewer gets
constexpr qint64 logBytes = 65'536;         // searched for these
constexpr qint64 logBytesAtStart = 1 << 20; // searched for the start, picture and sonde

constexpr int longestBody = 256; // bytes
constexpr double commandsPerSecond = 5;
constexpr double commandsAtOnce = 20;

QByteArray json(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

// The readings that differ from `known`, which is updated.
QJsonArray changed(const readings::Values &values, QMap<QByteArray, QString> &known)
{
    QJsonArray rows;
    for (const readings::Reading &reading : readings::all()) {
        // Compares stored values: the text is rounded, and the level may change without it.
        const char *key = reading.key.name;
        const QString stored = values.value(key);
        const auto last = known.constFind(key);
        if (last != known.constEnd() && *last == stored)
            continue;
        known.insert(key, stored);
        rows.append(QJsonObject{{"key", key},
                                {"label", reading.label},
                                {"group", reading.group},
                                {"due", reading.due},
                                {"text", QString::fromUtf8(readings::text(reading, values))},
                                {"stored", stored},
                                {"level", readings::level(reading, values)}});
    }
    return rows;
}

// The lamp's levels by steps from 0, the last one as far as the limit of its current allows.
QJsonArray lampLevels(const readings::Values &values)
{
    const AnyKey &limit = keys::lampMaxCurrent;
    int highest = lamp::highest(values.value(limit.name, limit.absent).toInt());
    if (highest == 0)
        highest = lamp::highest(QString(limit.absent).toInt());
    QJsonArray levels;
    for (int level = lamp::step; level < highest; level += lamp::step)
        levels.append(level);
    levels.append(highest);
    return levels;
}

// Names for the reel model: the standard one, those of the configuration, the one in use.
QJsonArray reelModels(const readings::Values &values)
{
    QStringList names(keys::coilerModel.absent);
    for (const QString &name : values.value(keys::coilerModels.name).split(',')) {
        if (commandwriter::isModel(name.trimmed()))
            names.append(name.trimmed());
    }
    names.append(values.value(keys::coilerModel.name)); // an app may set any text
    names.removeAll({});
    names.removeDuplicates();
    return QJsonArray::fromStringList(names);
}

// Heartbeat with the unit's time.
QByteArray beat()
{
    return "event: beat\ndata: "
           + json({{"time", timestamp::now()},
                   {"zone", QString::fromUtf8(QTimeZone::systemTimeZoneId())}})
           + "\n\n";
}

QJsonArray described(const QList<ProgramLog::Line> &lines)
{
    QJsonArray rows;
    for (const ProgramLog::Line &line : lines) {
        QJsonObject row = {{"time", QString::fromUtf8(line.time)},
                           {"type", line.type},
                           {"text", QString::fromUtf8(line.text)}};
        if (line.message) {
            row["meaning"] = QString(line.message->meaning).remove('`');
            row["remedy"] = QString(line.message->remedy).remove('`');
        }
        rows.append(row);
    }
    return rows;
}

} // namespace

HttpApi::HttpApi() : metrics(freshness), log(logBytesAtStart) {}

void HttpApi::look()
{
    freshness.look();
    metrics.count();
    const std::lock_guard lock(logMutex);
    log.take();
}

// Each start switches the sonde off, but the store has the last run's state until the next switch.
readings::Values HttpApi::readUnit()
{
    readings::Values values = readings::read();
    const std::lock_guard lock(logMutex);
    log.take();
    if (const std::optional<bool> on = log.sonde(); on && !values.isEmpty())
        values.insert(keys::sondeEnabled.name, *on ? "1" : "0");
    return values;
}

// The values are those of readUnit(), which has also read the log up to now.
QJsonObject HttpApi::unitState(const readings::Values &values)
{
    const Freshness::State program = freshness.look();
    const std::lock_guard lock(logMutex);
    QJsonObject state = {{"silent", program.silent},
                         {"picture", log.picture()},
                         {"unit", QSysInfo::machineHostName()},
                         {"started", QString::fromUtf8(log.started())},
                         {"lampLevels", lampLevels(values)},
                         {"reelModels", reelModels(values)}};
    if (program.silent)
        state["since"] = program.since;
    return state;
}

void HttpApi::handle(fastcgi::Exchange &exchange)
{
    struct Route {
        const char *path;
        const char *method;
        void (HttpApi::*handler)(fastcgi::Exchange &);
    };
    static constexpr Route routes[] = {
        {"/api/state", "GET", &HttpApi::sendState},
        {"/api/events", "GET", &HttpApi::sendEvents},
        {"/api/history", "GET", &HttpApi::sendHistory},
        {"/api/check", "GET", &HttpApi::sendCheck},
        {"/api/commands", "POST", &HttpApi::takeCommand},
        {"/metrics", "GET", &HttpApi::sendMetrics},
    };
    const QByteArray path = exchange.variable("SCRIPT_NAME") + exchange.variable("PATH_INFO");
    const auto route = std::find_if(std::begin(routes), std::end(routes),
                                    [&](const Route &known) { return path == known.path; });
    if (!gate::isHostAllowed(exchange))
        return;
    if (route == std::end(routes))
        refuse(exchange, 404, "no such path");
    else if (exchange.variable("REQUEST_METHOD") != route->method)
        refuse(exchange, 405, "wrong method");
    else
        (this->*route->handler)(exchange);
}

void HttpApi::sendState(fastcgi::Exchange &exchange)
{
    QMap<QByteArray, QString> nothing;
    const readings::Values values = readUnit();
    QJsonObject state = unitState(values);
    state["readings"] = changed(values, nothing);
    exchange.answer(200, "application/json", json(state));
}

void HttpApi::sendEvents(fastcgi::Exchange &exchange)
{
    const quint64 viewer = beginViewing();
    exchange.begin("text/event-stream");
    ProgramLog viewed(logBytes);
    QMap<QByteArray, QString> known;
    QJsonObject knownState;
    unsigned knownCommands = commands;
    auto spoken = steady_clock::now() - heartbeat;
    bool first = true;
    do {
        QByteArray events;
        QList<ProgramLog::Line> lines = viewed.take();
        if (first)
            lines = lines.mid(qMax(0, int(lines.size()) - logLines));
        if (!lines.isEmpty())
            events += "event: log\ndata: " + json({{"lines", described(lines)}}) + "\n\n";
        // The page that sent a command takes its readings from the answer; another command may have
        // changed them back since the last look.
        if (const unsigned now = commands; now != knownCommands) {
            knownCommands = now;
            known.clear();
        }
        const readings::Values values = readUnit();
        const QJsonArray rows = changed(values, known);
        QJsonObject state = unitState(values);
        if (!rows.isEmpty() || state != knownState) {
            knownState = state;
            state["readings"] = rows;
            events += "event: state\ndata: " + json(state) + "\n\n";
        }
        if (const auto now = steady_clock::now(); now - spoken >= heartbeat) {
            events.prepend(beat());
            spoken = now;
        }
        first = false;
        if (!events.isEmpty() && !exchange.send(events))
            break;
        if (!isViewing(viewer)) {
            exchange.send("event: displaced\ndata: {}\n\n");
            break;
        }
    } while (exchange.wait(lookInterval));
    endViewing(viewer);
}

// A ninth viewer displaces the oldest, which may be a phone that went out of range.
quint64 HttpApi::beginViewing()
{
    const std::lock_guard lock(viewersMutex);
    if (viewers.size() == mostViewers)
        viewers.pop_front();
    viewers.push_back(++lastViewer);
    return lastViewer;
}

bool HttpApi::isViewing(quint64 viewer)
{
    const std::lock_guard lock(viewersMutex);
    return std::find(viewers.begin(), viewers.end(), viewer) != viewers.end();
}

void HttpApi::endViewing(quint64 viewer)
{
    const std::lock_guard lock(viewersMutex);
    viewers.remove(viewer);
}

void HttpApi::sendHistory(fastcgi::Exchange &exchange)
{
    const QMap<QByteArray, int> ranges = {{"range=day", 1}, {"range=week", 7}, {"range=month", 31}};
    const int days = ranges.value(exchange.variable("QUERY_STRING"));
    if (days == 0)
        return refuse(exchange, 400, "range=day, week or month");
    if (++histories > mostHistories)
        refuse(exchange, 503, "too many histories at once");
    else
        exchange.answer(200, "application/json", history::read(days));
    --histories;
}

void HttpApi::sendCheck(fastcgi::Exchange &exchange)
{
    QFile file(paths::checkReport);
    const bool checked = safefile::open(file, QIODevice::ReadOnly);
    exchange.answer(200, "application/json", checked ? file.readAll() : "{}");
}

void HttpApi::sendMetrics(fastcgi::Exchange &exchange)
{
    const bool open = exchange.variable("HTTP_ACCEPT").contains("application/openmetrics-text");
    exchange.answer(200,
                    open ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                         : "text/plain; version=0.0.4; charset=utf-8",
                    metrics.text(open, readUnit()));
}

void HttpApi::takeCommand(fastcgi::Exchange &exchange)
{
    const std::optional<QByteArray> body = gate::ownBody(exchange, "application/json", longestBody);
    if (!body)
        return;
    // Not left to lighttpd, which answers 401: browsers forget the password then.
    if (exchange.variable("REMOTE_USER") == "reader")
        return refuse(exchange, 403, "this user may not control the unit");
    const commandwriter::Command command = commandwriter::parse(*body);
    if (command.line.isEmpty())
        return refuse(exchange, 400, "not a command");
    if (!mayCommandNow())
        return refuse(exchange, 429, "too many commands");

    const auto began = steady_clock::now();
    // The reasons are in the operator's words, because the page shows them.
    switch (commandwriter::carryOut(command, freshness)) {
    case commandwriter::Outcome::Taken:
        break;
    case commandwriter::Outcome::NotTaken:
        return refuse(exchange, 504,
                      freshness.look().silent ? "the unit is silent; nothing was done"
                                              : "the unit has not read it; nothing was done. If it "
                                                "happens again, restart the unit");
    case commandwriter::Outcome::Overtaken:
        return refuse(exchange, 409, "lamp off came first");
    case commandwriter::Outcome::Overwritten:
        return refuse(exchange, 409, "somebody else gave a command; try again");
    case commandwriter::Outcome::NotShown:
        return refuse(exchange, 504, "the unit read it, but no reading changed");
    case commandwriter::Outcome::Unwritable:
        return refuse(exchange, 500, "the commands file cannot be written: restart kt6120-web");
    case commandwriter::Outcome::Busy:
        return refuse(exchange, 503, "somebody else gives commands; try again");
    }
    const readings::Values values = readings::read();
    QJsonObject store;
    for (const char *key : command.shows)
        store[key] = values.value(key);
    const std::chrono::duration<double> took = steady_clock::now() - began;
    exchange.answer(200, "application/json",
                    json({{"line", QString::fromLatin1(command.line)},
                          {"seconds", took.count()},
                          {"store", store}}));
    ++commands;
}

bool HttpApi::mayCommandNow()
{
    const std::lock_guard lock(rateMutex);
    const auto now = steady_clock::now();
    const std::chrono::duration<double> passed = now - counted;
    counted = now;
    allowance = std::min(commandsAtOnce, allowance + passed.count() * commandsPerSecond);
    if (allowance < 1)
        return false;
    allowance -= 1;
    return true;
}
