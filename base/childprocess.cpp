// SPDX-License-Identifier: LicenseRef-KT6120
#include "childprocess.h"

#include <QHash>

#include <algorithm>
#include <array>
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

// A class of its own not least for what Qt does with it: a plain QProcess is started by a system
// call whose failure Qt 5.15 does not notice. It then takes -1 for the child's process id, and
// its kill() ends every process of the unit. A derived one is started by fork(), and fails as told.
class Child : public QProcess
{
public:
    using QProcess::QProcess;

    void writeTo(const Pipe &output, const Pipe &error)
    {
        outputEnd = output.writeEnd();
        errorEnd = error.writeEnd();
    }

protected:
    void setupChildProcess() override
    {
        if (outputEnd >= 0)
            dup2(outputEnd, STDOUT_FILENO);
        if (errorEnd >= 0)
            dup2(errorEnd, STDERR_FILENO);
    }

private:
    int outputEnd = -1;
    int errorEnd = -1;
};

// A child whose standard output is discarded.
Child *create(QObject *parent)
{
    auto *process = new Child(parent);
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->setStandardOutputFile(QProcess::nullDevice());
    return process;
}

void launch(QProcess *process, const Command &command)
{
    process->start(command.program, command.arguments, QIODevice::ReadWrite);
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
    QProcess *process = create(parent);
    // The object stays; closed, it holds a third of the memory.
    QObject::connect(process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), process,
                     &QProcess::close);
    launch(process, command);
    return process;
}

bool run(QObject *parent, const Command &command, std::chrono::milliseconds wait)
{
    return start(parent, command)->waitForFinished(int(wait.count()));
}

QByteArray output(QObject *parent, const Command &command, std::chrono::milliseconds wait)
{
    const QString line = toLine(command);
    // One of this command that was killed and is still there: where a device does not answer,
    // even that may be without effect.
    if (auto *before = parent->findChild<QProcess *>(line, Qt::FindDirectChildrenOnly)) {
        if (before->state() != QProcess::NotRunning
            && !before->waitForFinished(int(std::min(wait, lastWait).count())))
            return {};
        delete before;
    }
    const Pipe printed;
    const Pipe said;
    if (!printed.isOpen() || !said.isOpen())
        return {};
    Child *process = create(parent);
    process->setObjectName(line);
    process->writeTo(printed, said);
    launch(process, command);
    process->waitForFinished(int(wait.count()));
    if (process->state() == QProcess::NotRunning) {
        delete process;
    } else {
        // The end is not waited for.
        QObject::connect(process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished),
                         process, &QObject::deleteLater);
        process->closeWriteChannel();
        process->kill();
    }
    passOn(line, said.read());
    return printed.read();
}

std::string exec(const char *command)
{
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
