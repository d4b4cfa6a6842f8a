#include "childprocess.h"

#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>

namespace childprocess
{

namespace
{

QProcess *create(QObject *parent)
{
    auto *process = new QProcess(parent);
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    return process;
}

void launch(QProcess *process, const Command &command)
{
    process->start(command.program, command.arguments, QIODevice::ReadWrite);
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
    process->setStandardOutputFile(QProcess::nullDevice());
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
    QProcess *process = create(parent);
    launch(process, command);
    process->waitForFinished(int(wait.count()));
    QByteArray printed = process->readAllStandardOutput();
    if (process->state() == QProcess::NotRunning) {
        delete process;
    } else {
        // The end is not waited for: it may be long in coming where a device does not answer.
        QObject::connect(process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished),
                         process, &QObject::deleteLater);
        process->kill();
    }
    return printed;
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
