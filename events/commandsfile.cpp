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
#include <optional>

namespace
{

// Only this many bytes of the first line are read, so that a huge file costs nothing.
constexpr qint64 longestLine = 65536;

struct Row {
    const char *keyword;
    bool needsArgument;
    EVENT_TYPE_t event;                         // an argument is its payload if that is a text
    std::optional<EVENT_TYPE_t> otherwise = {}; // if the argument is not "1"
    const char *note = nullptr;                 // logged first
};

constexpr bool alone = false; // an argument is ignored
constexpr bool withArgument = true;

constexpr Row rows[] = {
    {"SONDE", withArgument, EVENT_SondeOn, EVENT_SondeOff},
    {"LAMPUP", alone, EVENT_LampUp},
    {"LAMPDOWN", alone, EVENT_LampDown},
    {"LAMPOFF", alone, EVENT_LampOff},
    {"RESET", alone, EVENT_CoilerSet},
    {"LOGRST", alone, EVENT_ResetLogs, {}, messages::mcuLogReset},
    {"MODEL", withArgument, EVENT_CoilerModel},
};

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
    if (row == std::end(rows) || (row->needsArgument && words.size() < 2))
        return;

    QString argument = words.value(1);
    if (row->note)
        qInfo() << row->note;
    const EVENT_TYPE_t event = argument == "1" ? row->event : row->otherwise.value_or(row->event);
    eventHandlerProcess(event, SOURCE_FIFO, carries<QString>(event) ? &argument : nullptr);
}
