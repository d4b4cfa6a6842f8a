// SPDX-License-Identifier: LicenseRef-KT6120
#include "childprocess.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <unistd.h>

using namespace std::chrono_literals;

namespace childprocess
{

namespace
{

// Capacity of the pipes that collect a reader's output. A child that prints more blocks.
constexpr int outputLimit = 65'536; // bytes

// How long a call waits for a killed predecessor to exit, in addition to its timeout.
constexpr auto predecessorWait = 100ms;

constexpr std::chrono::milliseconds repetitionInterval = 1h;

class Pipe
{
public:
    Pipe()
    {
        if (pipe2(ends, O_CLOEXEC) != 0)
            return;
        fcntl(ends[0], F_SETPIPE_SZ, outputLimit);
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
    }
    ~Pipe()
    {
        close(ends[0]);
        close(ends[1]);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    bool isOpen() const { return ends[0] >= 0; }
    int writeEnd() const { return ends[1]; }
    // All bytes written so far; does not block.
    QByteArray read() const
    {
        QByteArray bytes(outputLimit, Qt::Uninitialized);
        const ssize_t count = ::read(ends[0], bytes.data(), size_t(bytes.size()));
        return bytes.left(int(qMax<ssize_t>(count, 0)));
    }

private:
    int ends[2] = {-1, -1};
};

// Marks all file descriptors beyond standard error close-on-exec, so that no child inherits the
// camera. Closing them here would also close the one by which Qt detects a failed exec().
// Async-signal-safe, as code between fork and exec must be.
void closeAtExec()
{
    close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
}

// A child whose standard output is discarded. Qt 5.15 starts a plain QProcess by a system call
// whose failure it does not notice: it then uses -1 as process id, and kill() ends every process of
// the unit. It starts a derived class by fork() and reports a failure.
class Child : public QProcess
{
public:
    explicit Child(QObject *parent) : QProcess(parent)
    {
        setProcessChannelMode(QProcess::ForwardedErrorChannel);
        setStandardOutputFile(QProcess::nullDevice());
    }

protected:
    void setupChildProcess() override { closeAtExec(); }
};

// A child that writes to two pipes and leads a new process group.
class Reader : public Child
{
public:
    Reader(QObject *parent, const Pipe &output, const Pipe &error)
        : Child(parent), outputEnd(output.writeEnd()), errorEnd(error.writeEnd())
    {
    }

    // Returns the id of the process group; 0 if the program could not be started.
    pid_t launchGroup(const Command &command)
    {
        start(command.program, command.arguments);
        const auto group = pid_t(processId());
        // Parent and child both set the group, because either may run first.
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

// Signals a process group; false if it does not exist. kill() would apply ids of 1 or less to every
// process, or to the program's own group.
bool signalGroup(pid_t group, int number)
{
    return group > 1 && (kill(-group, number) == 0 || errno != ESRCH);
}

// Whether any process of a group still runs. A zombie remains a member of its group until it is
// reaped, and not every init process reaps, so this reads the states in /proc.
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

// Forwards what a command wrote to standard error, but a message that repeats the command's last
// one only once an hour: readers run every few seconds, and a fault may last for months.
void forwardErrors(const QString &line, const QByteArray &text)
{
    struct Message {
        QByteArray text;
        int repeated = 0;
        QElapsedTimer forwarded;
    };
    static QHash<QString, Message> lastMessages;
    if (text.isEmpty())
        return;
    Message &last = lastMessages[line];
    if (last.text == text && !last.forwarded.hasExpired(repetitionInterval.count())) {
        ++last.repeated;
        return;
    }
    if (last.repeated > 0)
        fprintf(stderr, "%s: the last message came %d times more\n", qPrintable(line),
                last.repeated);
    fwrite(text.constData(), 1, size_t(text.size()), stderr);
    last = {text, 0, {}};
    last.forwarded.start();
}

} // namespace

Command fromLine(const QString &line)
{
    const QStringList words = QProcess::splitCommand(line);
    return {words.value(0), words.mid(1)};
}

QProcess *start(QObject *parent, const Command &command)
{
    auto *process = new Child(parent);
    // A closed QProcess uses a third of the memory.
    QObject::connect(process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), process,
                     &QProcess::close);
    process->start(command.program, command.arguments);
    return process;
}

bool run(QObject *parent, const Command &command, std::chrono::milliseconds wait)
{
    return start(parent, command)->waitForFinished(int(wait.count()));
}

QByteArray output(QObject *parent, const Command &command, std::chrono::milliseconds wait)
{
    const QString line = toLine(command);
    // The killed process group of each command. A process that waits for a device may survive
    // SIGKILL until the device answers.
    static QHash<QString, pid_t> killedGroups;
    if (const auto before = killedGroups.find(line); before != killedGroups.end()) {
        if (auto *process = parent->findChild<QProcess *>(line, Qt::FindDirectChildrenOnly))
            process->waitForFinished(
                int(std::min<std::chrono::milliseconds>(wait, predecessorWait).count()));
        if (isRunning(*before))
            return {};
        killedGroups.erase(before);
    }
    const Pipe standardOutput;
    const Pipe standardError;
    if (!standardOutput.isOpen() || !standardError.isOpen())
        return {};
    auto *process = new Reader(parent, standardOutput, standardError);
    process->setObjectName(line);
    const pid_t group = process->launchGroup(command);
    process->waitForFinished(int(wait.count()));
    // Also kills what a command that has exited left running.
    if (signalGroup(group, SIGKILL))
        killedGroups.insert(line, group);
    if (process->state() == QProcess::NotRunning) {
        delete process;
    } else {
        QObject::connect(process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished),
                         process, &QObject::deleteLater);
        process->closeWriteChannel();
    }
    forwardErrors(line, standardError.read());
    return standardOutput.read();
}

std::string exec(const char *command)
{
    closeAtExec(); // in this process, because popen() cannot run code in the child
    const std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen(command, "r"), pclose);
    if (!pipe)
        throw std::runtime_error("popen() failed!");
    QFile output; // unlike stdio, it reads on after a signal, such as that of another child's end
    output.open(fileno(pipe.get()), QIODevice::ReadOnly);
    return output.readAll().toStdString();
}

} // namespace childprocess
