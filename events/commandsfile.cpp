// SPDX-License-Identifier: LicenseRef-KT6120

// The commands file: a web page writes one command into it. The first line is executed at every
// change.

#include "eventhandler.h"

#include "logmessages.h"
#include "paths.h"
#include "safefile.h"

#include <QDebug>
#include <QFile>
#include <QFileSystemWatcher>
#include <QStringList>

#include <algorithm>
#include <iterator>

namespace
{

// Only this many bytes of the first line are read, so that a huge file costs nothing.
constexpr qint64 longestLine = 65536;

enum class Argument {
    Ignored,
    Switch, // required: "1" raises the event, anything else the other one
    Text,   // required: the event's payload
};

struct Row {
    const char *keyword;
    Argument argument;
    EVENT_TYPE_t event;
    EVENT_TYPE_t otherwise;
    const char *note; // logged first
};

constexpr Row rows[] = {
    {"SONDE", Argument::Switch, EVENT_SondeOn, EVENT_SondeOff, nullptr},
    {"LAMPUP", Argument::Ignored, EVENT_LampUp, {}, nullptr},
    {"LAMPDOWN", Argument::Ignored, EVENT_LampDown, {}, nullptr},
    {"LAMPOFF", Argument::Ignored, EVENT_LampOff, {}, nullptr},
    {"RESET", Argument::Ignored, EVENT_CoilerSet, {}, nullptr},
    {"LOGRST", Argument::Ignored, EVENT_ResetLogs, {}, messages::mcuLogReset},
    {"MODEL", Argument::Text, EVENT_CoilerModel, {}, nullptr},
};

constexpr bool eachTextIsItsEventsPayload()
{
    for (const Row &row : rows) {
        if (row.argument == Argument::Text && !carries<QString>(row.event))
            return false;
    }
    return true;
}
static_assert(eachTextIsItsEventsPayload());

} // namespace

// A file that is missing at start is never watched; a file that is replaced is no longer watched.
void eventHandler::eventHandlerSetupFifo()
{
    auto *watcher = new QFileSystemWatcher(this);
    watcher->addPath(paths::commandsFile);
    connect(watcher, &QFileSystemWatcher::fileChanged, this,
            &eventHandler::eventHandlerFIFOChanged);
}

void eventHandler::eventHandlerFIFOChanged(QString path)
{
    if (path != paths::commandsFile)
        return;
    QFile file(path);
    if (!safefile::open(file, QIODevice::ReadOnly | QIODevice::Text))
        return;
    QByteArray line = file.readLine(longestLine);
    if (line.endsWith('\n'))
        line.chop(1);
    eventHandlerParseFIFO(QString::fromUtf8(line.constData(), line.size())); // also behind a NUL
}

void eventHandler::eventHandlerParseFIFO(QString line)
{
    const QStringList words = line.split(' ');
    const auto row = std::find_if(std::begin(rows), std::end(rows), [&words](const Row &candidate) {
        return words.first() == candidate.keyword;
    });
    if (row == std::end(rows) || (row->argument != Argument::Ignored && words.size() < 2))
        return;

    QString argument = words.value(1);
    if (row->note)
        qInfo() << row->note;
    switch (row->argument) {
    case Argument::Ignored:
        eventHandlerProcess(row->event, SOURCE_FIFO, nullptr);
        break;
    case Argument::Switch:
        eventHandlerProcess(argument == "1" ? row->event : row->otherwise, SOURCE_FIFO, nullptr);
        break;
    case Argument::Text:
        eventHandlerProcess(row->event, SOURCE_FIFO, &argument);
        break;
    }
}
