// SPDX-License-Identifier: LicenseRef-KT6120
#include "commandwriter.h"

#include "freshness.h"
#include "keys.h"
#include "paths.h"
#include "readings.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <algorithm>
#include <array>
#include <atomic>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;
using std::chrono::steady_clock;

namespace
{

constexpr off_t longestRest = 4096; // bytes of older content to overwrite with line feeds
// The longest wait of the unit's event loop is an ifconfig of half a minute.
constexpr std::chrono::milliseconds patience = 35s;
// For a line that the unit has not read: if the store does not change either, the event loop is
// blocked. A unit writes its store every 15 s at least, every 5 s while the MCU answers, unless its
// disk is full.
constexpr auto storeInterval = 15s;
constexpr auto unreadPatience = 12s; // two attempts to connect to the app take ten
constexpr auto unreadPatienceAtRest = 500ms;
constexpr std::chrono::milliseconds unreadLook = 50ms;
constexpr auto withdrawal = 100ms; // for a read that had begun before the line was withdrawn
constexpr std::chrono::milliseconds turnLimit = 5s;
constexpr auto turnLook = 20ms;
constexpr auto lineOfAnother = 500ms; // for the line of a writer that does not lock
constexpr auto storePatience = 2s; // the unit writes the store before it closes the commands file
constexpr auto storeLook = 20ms;

using readings::Values;

constexpr char modelName[] = "[A-Za-z0-9._-]{1,32}";

constexpr auto never = [] { return false; };

int lamp(const Values &values)
{
    return values.value(keys::lampLevel.name, "-1").toInt();
}

struct Word {
    const char *command;
    const char *argument; // regular expression; null: the command takes none
    std::array<const char *, 2> shows;
    // Whether the store shows the effect; null: the command has no key.
    bool (*isShown)(const Values &before, const Values &after, const QString &argument);
};

constexpr Word vocabulary[] = {
    {"SONDE",
     "[01]",
     {keys::sondeEnabled.name, nullptr},
     [](const Values &, const Values &after, const QString &argument) {
         return after.value(keys::sondeEnabled.name) == argument;
     }},
    // At the highest level it stays; while a probe locks the lamp, it stays off. Once after a
    // restart, the level falls: the store still had the last run's, but the program starts from 0.
    {"LAMPUP",
     nullptr,
     {keys::lampLevel.name, nullptr},
     [](const Values &, const Values &after, const QString &) { return lamp(after) > 0; }},
    // From off, the lamp comes on one step below its last level.
    {"LAMPDOWN",
     nullptr,
     {keys::lampLevel.name, nullptr},
     [](const Values &before, const Values &after, const QString &) {
         return lamp(after) == 0
                || (lamp(after) > 0 && (lamp(before) <= 0 || lamp(after) < lamp(before)));
     }},
    {"LAMPOFF",
     nullptr,
     {keys::lampLevel.name, nullptr},
     [](const Values &, const Values &after, const QString &) { return lamp(after) <= 0; }},
    // Not the counter: the reel may already be turning.
    {"RESET",
     nullptr,
     {keys::coilerCount.name, keys::coilerOffset.name},
     [](const Values &, const Values &after, const QString &) {
         return after.value(keys::coilerOffset.name) == "0";
     }},
    {"LOGRST", nullptr, {nullptr, nullptr}, nullptr},
    {"MODEL",
     modelName,
     {keys::coilerModel.name, nullptr},
     [](const Values &, const Values &after, const QString &argument) {
         return after.value(keys::coilerModel.name) == argument;
     }},
};

bool fits(const QString &text, const char *pattern)
{
    return QRegularExpression(QRegularExpression::anchoredPattern(pattern)).match(text).hasMatch();
}

// Watches the commands file through inotify. Events come in order: a read after a write has read
// that write's line, and the unit closes the file once it has carried the line out. IN_OPEN and
// IN_CLOSE_WRITE keep the kernel from merging the writes of two writers into one event.
class Events
{
public:
    Events()
    {
        inotify_add_watch(queue, paths::commandsFile,
                          IN_OPEN | IN_MODIFY | IN_ACCESS | IN_CLOSE_WRITE | IN_CLOSE_NOWRITE);
    }
    ~Events() { close(queue); }
    Events(const Events &) = delete;
    Events &operator=(const Events &) = delete;

    bool haveRead() const { return accessed; }
    int writesBeforeReading() const { return writes; }
    bool writtenSince() const { return writtenLater; }

    // True once a process has read and closed the file, false after the time limit. While no
    // process has read it, the condition ends the wait as well.
    template <typename Condition>
    bool haveClosed(std::chrono::milliseconds limit, Condition isFutile)
    {
        const auto end = steady_clock::now() + limit;
        while (!closed) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now());
            if (left <= 0ms || (!accessed && isFutile()))
                return false;
            pollfd waiting = {queue, POLLIN, 0};
            if (poll(&waiting, 1, int(std::min(left, unreadLook).count())) > 0)
                take();
        }
        return true;
    }

private:
    void take()
    {
        alignas(inotify_event) std::array<char, 4096> buffer{};
        const ssize_t size = read(queue, buffer.data(), buffer.size());
        for (ssize_t at = 0; at < size;) {
            const auto *event = reinterpret_cast<const inotify_event *>(buffer.data() + at);
            if (event->mask & IN_MODIFY) {
                writes += accessed ? 0 : 1;
                writtenLater = accessed;
            }
            accessed = accessed || (event->mask & IN_ACCESS);
            closed = closed || (accessed && (event->mask & IN_CLOSE_NOWRITE));
            at += ssize_t(sizeof *event) + event->len;
        }
    }

    int queue = inotify_init1(IN_CLOEXEC);
    int writes = 0;
    bool accessed = false;
    bool writtenLater = false;
    bool closed = false;
};

// The commands file. Writers take turns through flock.
class CommandsFile
{
public:
    // O_NONBLOCK: a FIFO in its place must not block.
    CommandsFile() : file(open(paths::commandsFile, O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {}
    ~CommandsFile()
    {
        if (file >= 0)
            close(file);
    }
    CommandsFile(const CommandsFile &) = delete;
    CommandsFile &operator=(const CommandsFile &) = delete;

    bool isThere() const
    {
        struct stat status = {};
        return fstat(file, &status) == 0 && S_ISREG(status.st_mode);
    }

    bool lock(std::chrono::milliseconds limit) const
    {
        const auto end = steady_clock::now() + limit;
        while (flock(file, LOCK_EX | LOCK_NB) != 0) {
            if (steady_clock::now() > end)
                return false;
            std::this_thread::sleep_for(turnLook);
        }
        return true;
    }

    // Gives the unit time to read the line of a writer that does not lock.
    void letAnothersLinePass() const
    {
        const auto age =
            std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch())
            - modified();
        if (modified().count() != ownWrite && age >= 0ms && age < lineOfAnother)
            Events().haveClosed(std::chrono::ceil<std::chrono::milliseconds>(lineOfAnother - age),
                                never);
    }

    // One write in place is one notification for the unit. Truncating would be a second one, so
    // line feeds overwrite what was longer.
    bool write(const QByteArray &line) const
    {
        QByteArray content = line + '\n';
        struct stat before = {};
        if (fstat(file, &before) == 0 && before.st_size > content.size())
            content.append(int(std::min(before.st_size, longestRest) - content.size()), '\n');
        const bool done =
            pwrite(file, content.constData(), size_t(content.size()), 0) == content.size();
        ownWrite = modified().count();
        return done;
    }

    // To a watcher this looks like the unit's read.
    bool begins(const QByteArray &line) const
    {
        QByteArray content(line.size() + 1, '\0');
        return pread(file, content.data(), size_t(content.size()), 0) == content.size()
               && content == line + '\n';
    }

private:
    std::chrono::nanoseconds modified() const
    {
        struct stat status = {};
        fstat(file, &status);
        return std::chrono::seconds(status.st_mtim.tv_sec)
               + std::chrono::nanoseconds(status.st_mtim.tv_nsec);
    }

    static std::atomic<std::chrono::nanoseconds::rep> ownWrite; // when this process last wrote it
    int file;
};

std::atomic<std::chrono::nanoseconds::rep> CommandsFile::ownWrite = 0;

bool storeShows(const QByteArray &line, const Values &before)
{
    const QStringList words = QString::fromLatin1(line).split(' ');
    const auto *const word =
        std::find_if(std::begin(vocabulary), std::end(vocabulary),
                     [&](const Word &known) { return words.first() == known.command; });
    if (!word->isShown)
        return true;
    const auto end = steady_clock::now() + storePatience;
    while (!word->isShown(before, readings::read(), words.value(1))) {
        if (steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(storeLook);
    }
    return true;
}

} // namespace

namespace commandwriter
{

Command parse(const QByteArray &body)
{
    const QJsonObject request = QJsonDocument::fromJson(body).object();
    const QString command = request.value("command").toString();
    const auto word = std::find_if(std::begin(vocabulary), std::end(vocabulary),
                                   [&](const Word &known) { return command == known.command; });
    const bool isConditional = command.startsWith("LAMP") && request.contains("from");
    if (word == std::end(vocabulary)
        || request.size() != 1 + int(word->argument != nullptr) + int(isConditional))
        return {};
    Command found = {word->command, {}, request.value("from").toString()};
    if (isConditional && !fits(found.from, "-1|[0-9]{1,3}"))
        return {};
    if (word->argument) {
        const QString argument = request.value("argument").toString();
        if (!fits(argument, word->argument))
            return {};
        found.line += ' ' + argument.toLatin1();
    }
    for (const char *key : word->shows) {
        if (key)
            found.shows.append(key);
    }
    return found;
}

bool isModel(const QString &name)
{
    return fits(name, modelName);
}

Outcome carryOut(const Command &command, Freshness &freshness)
{
    const QByteArray &line = command.line;
    const CommandsFile file;
    if (!file.isThere())
        return Outcome::Unwritable;
    static std::atomic<int> urgent = 0; // LAMPOFFs that wait for the lock
    const bool passes = line == "LAMPOFF";
    urgent += passes;
    const bool locked = file.lock(passes ? patience : turnLimit);
    urgent -= passes;
    if (!locked)
        return Outcome::Busy;
    const auto isOvertaken = [passes] { return !passes && urgent > 0; };
    const Outcome overtaken = line.startsWith("LAMP") ? Outcome::Overtaken : Outcome::Busy;
    if (isOvertaken())
        return overtaken;
    file.letAnothersLinePass();
    const Values before = readings::read();
    if (!command.from.isEmpty() && before.value(keys::lampLevel.name) != command.from)
        return Outcome::Overwritten;
    Events events;
    if (!file.write(line))
        return Outcome::Unwritable;
    const auto written = steady_clock::now();
    const auto isFutile = [&] {
        const std::chrono::duration<double> waited = steady_clock::now() - written;
        const Freshness::State program = freshness.look();
        const std::chrono::duration<double> age(program.age);
        const bool rests = program.silent || age > storeInterval;
        return isOvertaken() || (rests && waited > unreadPatienceAtRest)
               || std::min(waited, age) > unreadPatience;
    };
    const bool closed = events.haveClosed(patience, isFutile);
    if (events.writesBeforeReading() > 1)
        return Outcome::Overwritten;
    if (!closed) {
        if (!events.haveRead())
            file.write({}); // or the unit would carry it out whenever it runs again
        events.haveClosed(withdrawal, never);
        // What was read after the withdrawal was the blank line.
        if (!events.haveRead() || events.writesBeforeReading() > 1)
            return isOvertaken() ? overtaken : Outcome::NotTaken;
    } else if (!events.writtenSince() && !file.begins(line)) {
        return Outcome::Overwritten;
    }
    return storeShows(line, before) ? Outcome::Taken : Outcome::NotShown;
}

} // namespace commandwriter
