// SPDX-License-Identifier: LicenseRef-KT6120
#include "unitprocess.h"

#include "journal.h"
#include "world.h"

#include <QProcessEnvironment>

#include <csignal>
#include <stdexcept>

namespace
{

constexpr int startLimit = 5000;  // ms
constexpr qint64 lastWords = 500; // ms
constexpr int stopLimit = 5000;   // ms

QProcessEnvironment environment(const QString &paceFile)
{
    QProcessEnvironment world = QProcessEnvironment::systemEnvironment();
    world.insert("PATH", QString(world::programFolder) + ":/usr/sbin:/usr/bin:/sbin:/bin");
    world.insert("GST_PLUGIN_PATH", BENCH_STANDINS);
    world.insert("GST_REGISTRY", BENCH_REGISTRY);
    // Its components live until the process ends, which is no leak; and the address sanitizer
    // otherwise insists on being preloaded first.
    world.insert("ASAN_OPTIONS",
                 world.value("ASAN_OPTIONS")
                     + ":detect_leaks=0:fast_unwind_on_malloc=1:verify_asan_link_order=0");
    if (!paceFile.isEmpty()) {
        world.insert("LD_PRELOAD", BENCH_FASTTIME);
        world.insert("BENCH_PACE", paceFile);
    }
    return world;
}

} // namespace

UnitProcess::UnitProcess(Journal &notes) : journal(notes)
{
    connect(&process, &QProcess::readyReadStandardOutput, this,
            [this] { journal.note(Kind::Stdout, process.readAllStandardOutput()); });
    connect(&process, &QProcess::readyReadStandardError, this,
            [this] { journal.note(Kind::Stderr, process.readAllStandardError()); });
    connect(&process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
            &UnitProcess::finished);
}

UnitProcess::~UnitProcess()
{
    finish();
}

void UnitProcess::start()
{
    if (isRunning())
        throw std::runtime_error("the unit is running");
    end.clear();
    stopping = unasked = false;
    process.setProcessEnvironment(environment(paceFile));
    process.setWorkingDirectory("/");
    process.start(world::program, QStringList());
    if (!process.waitForStarted(startLimit))
        throw std::runtime_error("cannot start " + std::string(world::program));
    journal.note(Kind::Bench, "unit started\n");
}

void UnitProcess::stop()
{
    finish();
}

void UnitProcess::finish()
{
    stopping = true;
    if (!isRunning())
        return;
    process.kill();
    process.waitForFinished(stopLimit);
}

void UnitProcess::signal(int number)
{
    if (!isRunning())
        throw std::runtime_error("the unit is not running");
    ::kill(pid_t(id()), number);
}

bool UnitProcess::isLost() const
{
    return unasked && sinceEnd.hasExpired(lastWords);
}

void UnitProcess::finished(int code, QProcess::ExitStatus status)
{
    end = status == QProcess::CrashExit ? "signal " + QByteArray::number(code)
                                        : QByteArray::number(code);
    unasked = !stopping;
    sinceEnd.start();
    journal.note(Kind::Bench, "unit ended: exit " + end + '\n');
    emit ended();
}
