// SPDX-License-Identifier: LicenseRef-KT6120
#include "childprocess.h"

#include <QDir>
#include <QFile>
#include <QHash>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <unistd.h>

namespace childprocess
{

namespace
{

// What a reader may print; a pipe of that capacity holds it until it is looked at, and a child
// that prints more stops there by itself.
constexpr int outputBound = 65'536; // bytes

// What the end of a reader that was killed may take of the next one's wait.
constexpr std::chrono::milliseconds lastWait(100);

class Pipe
{
public:
    Pipe()
    {
        if (pipe2(ends, O_CLOEXEC) != 0)
            return;
        fcntl(ends[0], F_SETPIPE_SZ, outputBound);
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
    }
    ~Pipe()
    {
        closeEnd(ends[0]);
        closeEnd(ends[1]);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    bool isOpen() const { return ends[0] >= 0; }
    int writeEnd() const { return ends[1]; }
    // What has been written so far, without waiting for more.
    QByteArray read() const
    {
        QByteArray bytes(outputBound, Qt::Uninitialized);
        const ssize_t count = ::read(ends[0], bytes.data(), size_t(bytes.size()));
        return bytes.left(int(qMax<ssize_t>(count, 0)));
    }

private:
    static void closeEnd(int end)
    {
        if (end >= 0)
            close(end);
    }

    int ends[2] = {-1, -1};
};

// Nothing of the program's own, the camera least of all, is for a child. The descriptors are closed
// by exec() and not here, so that Qt hears of an exec() that fails. Safe between fork and exec.
void closeAtExec()
{
    close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
}

// A child whose standard output is discarded. A class of its own not least for what Qt does with
// it: a plain QProcess is started by a system call whose failure Qt 5.15 does not notice. It then
// takes -1 for the child's process id, and its kill() ends every process of the unit. A derived one
// is started by fork(), and fails as told.
class Child : public QProcess
{
public:
    explicit Child(QObject *parent) : QProcess(parent)
    {
        setProcessChannelMode(QProcess::ForwardedErrorChannel);
        setStandardOutputFile(QProcess::nullDevice());
    }

    void launch(const Command &command)
    {
        start(command.program, command.arguments, QIODevice::ReadWrite);
    }

protected:
    void setupChildProcess() override { closeAtExec(); }
};

// A child that writes to two pipes and leads a process group of its own.
class Reader : public Child
{
public:
    Reader(QObject *parent, const Pipe &output, const Pipe &error)
        : Child(parent), outputEnd(output.writeEnd()), errorEnd(error.writeEnd())
    {
    }

    // The group's number; 0 where the program could not be started.
    pid_t launchGroup(const Command &command)
    {
        launch(command);
        const auto group = pid_t(processId());
        // As the child itself does: whoever comes first, nothing it starts is outside the group.
        if (group > 0)
            setpgid(group, group);
        return group;
    }

protected:
    void setupChildProcess() override
    {
        setpgid(0, 0);
        dup2(outputEnd, STDOUT_FILENO);
        dup2(errorEnd, STDERR_FILENO);
        Child::setupChildProcess();
    }

private:
    int outputEnd;
    int errorEnd;
};

// Signals a process group. No number of 1 or less: kill() would take it for everybody's.
bool signalGroup(pid_t group, int number)
{
    return group > 1 && (kill(-group, number) == 0 || errno != ESRCH);
}

// Whether any process of a group still runs. What has ended stays a member until it is reaped, and
// not every system's first process reaps; so a group that is there is looked at in /proc.
bool isRunning(pid_t group)
{
    if (!signalGroup(group, 0))
        return false;
    for (const QString &process : QDir("/proc").entryList({"[1-9]*"}, QDir::Dirs)) {
        QFile file("/proc/" + process + "/stat");
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QByteArray status = file.readAll(); // number (name) state parent group ...
        const QByteArrayList words = status.mid(status.lastIndexOf(')') + 2).split(' ');
        if (words.value(0) != "Z" && words.value(2).toInt() == group)
            return true;
    }
    return false;
}

QString toLine(const Command &command)
{
    return (QStringList(command.program) + command.arguments).join(' ');
}

// Passes on what a reader said on standard error, unless it has said the same before: it is asked
// again every few seconds, and what ails it stays for months.
void passOn(const QString &line, const QByteArray &said)
{
    struct Last {
        QByteArray said;
        int repeated = 0;
    };
    static QHash<QString, Last> known;
    if (said.isEmpty())
        return;
    Last &last = known[line];
    if (last.said == said) {
        ++last.repeated;
        return;
    }
    if (last.repeated > 0)
        fprintf(stderr, "%s: the last message came %d times more\n", qPrintable(line),
                last.repeated);
    fwrite(said.constData(), 1, size_t(said.size()), stderr);
    last = {said, 0};
}

} // namespace

Command fromLine(const QString &line)
{
    QStringList words = QProcess::splitCommand(line);
    const QString program = words.isEmpty() ? QString() : words.takeFirst();
    return {program, words};
}

QProcess *start(QObject *parent, const Command &command)
{
    auto *process = new Child(parent);
    // The object stays; closed, it holds a third of the memory.
    QObject::connect(process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), process,
                     &QProcess::close);
    process->launch(command);
    return process;
}

bool run(QObject *parent, const Command &command, std::chrono::milliseconds wait)
{
    return start(parent, command)->waitForFinished(int(wait.count()));
}

QByteArray output(QObject *parent, const Command &command, std::chrono::milliseconds wait)
{
    const QString line = toLine(command);
    // Groups of which something was killed, each by its command. Where a device does not answer,
    // even that may be without effect.
    static QHash<QString, pid_t> killed;
    if (const auto before = killed.find(line); before != killed.end()) {
        if (auto *process = parent->findChild<QProcess *>(line, Qt::FindDirectChildrenOnly))
            process->waitForFinished(int(std::min(wait, lastWait).count()));
        if (isRunning(*before))
            return {};
        killed.erase(before);
    }
    const Pipe printed;
    const Pipe said;
    if (!printed.isOpen() || !said.isOpen())
        return {};
    auto *process = new Reader(parent, printed, said);
    process->setObjectName(line);
    const pid_t group = process->launchGroup(command);
    process->waitForFinished(int(wait.count()));
    // All of it, or what a leader that has ended left behind.
    if (signalGroup(group, SIGKILL))
        killed.insert(line, group);
    if (process->state() == QProcess::NotRunning) {
        delete process;
    } else {
        // The end is not waited for.
        QObject::connect(process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished),
                         process, &QObject::deleteLater);
        process->closeWriteChannel();
    }
    passOn(line, said.read());
    return printed.read();
}

std::string exec(const char *command)
{
    closeAtExec(); // in the program itself: popen() leaves no place for it in the child
    const std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen(command, "r"), pclose);
    if (!pipe)
        throw std::runtime_error("popen() failed!");
    std::array<char, 128> piece;
    std::string printed;
    while (fgets(piece.data(), int(piece.size()), pipe.get()))
        printed += piece.data();
    return printed;
}

} // namespace childprocess
