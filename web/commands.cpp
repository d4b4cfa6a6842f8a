// SPDX-License-Identifier: LicenseRef-KT6120
#include "commands.h"

#include "paths.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <algorithm>
#include <array>
#include <atomic>
#include <fcntl.h>
#include <iterator>
#include <mutex>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace std::chrono_literals;
using std::chrono::steady_clock;

namespace
{

constexpr off_t longestRest = 4096; // bytes of earlier content that are blanked
// The unit's loop is held up by nothing longer than an ifconfig of half a minute; when it runs on,
// it looks at the file. Who has not looked by then does not watch it.
constexpr std::chrono::milliseconds patience = 35s;
constexpr std::chrono::milliseconds patienceWithSilent = 500ms; // it may only be out of disk space
constexpr std::chrono::milliseconds overtakingLook = 50ms;
constexpr auto withdrawal = 100ms; // for what the unit had begun when the line was withdrawn
constexpr auto turnLimit = 5s;

struct Word {
    const char *command;
    const char *argument; // a pattern; null: there is none
    std::array<const char *, 2> shows;
};

constexpr Word vocabulary[] = {
    {"SONDE", "[01]", {"Sonde/Enabled", nullptr}},
    {"LAMPUP", nullptr, {"Camera/Lamp", nullptr}},
    {"LAMPDOWN", nullptr, {"Camera/Lamp", nullptr}},
    {"LAMPOFF", nullptr, {"Camera/Lamp", nullptr}},
    {"RESET", nullptr, {"Camera/Coiler", "Camera/CoilerOffset"}},
    {"LOGRST", nullptr, {nullptr, nullptr}},
    {"MODEL", "[A-Za-z0-9._-]{1,32}", {"Coiler/Model", nullptr}},
};

bool fits(const QString &text, const char *pattern)
{
    return QRegularExpression(QRegularExpression::anchoredPattern(pattern)).match(text).hasMatch();
}

// What others do to the commands file. The kernel tells it in the order in which it happens: a
// reader that came after a write has read that write's line, and the unit closes the file when it
// has carried the line out.
class Readers
{
public:
    Readers() { inotify_add_watch(queue, paths::commandsFile, IN_ACCESS | IN_CLOSE_NOWRITE); }
    ~Readers() { close(queue); }
    Readers(const Readers &) = delete;
    Readers &operator=(const Readers &) = delete;

    bool haveRead() const { return accessed; }

    // Whether somebody has read and closed the file before the time is over; what nobody has read
    // is not waited for any longer once it is overtaken.
    template <typename Condition>
    bool haveClosed(std::chrono::milliseconds limit, Condition isOvertaken)
    {
        const auto end = steady_clock::now() + limit;
        while (!closed) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now());
            if (left <= 0ms || (!accessed && isOvertaken()))
                return false;
            pollfd waiting = {queue, POLLIN, 0};
            if (poll(&waiting, 1, int(std::min(left, overtakingLook).count())) > 0)
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
            accessed = accessed || (event->mask & IN_ACCESS);
            closed = closed || (accessed && (event->mask & IN_CLOSE_NOWRITE));
            at += ssize_t(sizeof *event) + event->len;
        }
    }

    int queue = inotify_init1(IN_CLOEXEC);
    bool accessed = false;
    bool closed = false;
};

// In place and in one write, which is one notification: the file is never cut, what it had more
// becomes blank lines.
bool write(const QByteArray &line)
{
    const int file = open(paths::commandsFile, O_WRONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    QByteArray content = line + '\n';
    struct stat before = {};
    if (fstat(file, &before) == 0 && before.st_size > content.size())
        content.append(int(std::min(before.st_size, longestRest) - content.size()), '\n');
    const bool done =
        pwrite(file, content.constData(), size_t(content.size()), 0) == content.size();
    close(file);
    return done;
}

} // namespace

namespace commands
{

Command parse(const QByteArray &body)
{
    const QJsonObject request = QJsonDocument::fromJson(body).object();
    const QString command = request.value("command").toString();
    const auto word = std::find_if(std::begin(vocabulary), std::end(vocabulary),
                                   [&](const Word &known) { return command == known.command; });
    if (word == std::end(vocabulary) || request.size() != (word->argument ? 2 : 1))
        return {};
    Command found = {word->command, {}};
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

Outcome carryOut(const QByteArray &line, bool silent)
{
    static std::timed_mutex turn;
    static std::atomic<int> urgent = 0; // LAMPOFFs that wait for their turn
    const bool passes = line == "LAMPOFF";
    urgent += passes;
    const std::unique_lock lock(turn, passes ? patience : turnLimit);
    urgent -= passes;
    if (!lock)
        return Outcome::Busy;
    const auto isOvertaken = [passes] { return !passes && urgent > 0; };
    const Outcome overtaken = line.startsWith("LAMP") ? Outcome::Overtaken : Outcome::Busy;
    if (isOvertaken())
        return overtaken;
    Readers readers;
    if (!write(line))
        return Outcome::Unwritable;
    if (readers.haveClosed(silent ? patienceWithSilent : patience, isOvertaken))
        return Outcome::Taken;
    if (!readers.haveRead())
        write({}); // so that nothing happens long after it was asked for
    readers.haveClosed(withdrawal, [] { return false; });
    return readers.haveRead() ? Outcome::Taken : isOvertaken() ? overtaken : Outcome::NotTaken;
}

} // namespace commands
