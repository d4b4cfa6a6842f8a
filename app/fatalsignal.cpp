// SPDX-License-Identifier: LicenseRef-KT6120
#include "fatalsignal.h"

#include <QCoreApplication>

#include <array>
#include <csignal>
#include <cstdio>
#include <execinfo.h>
#include <unistd.h>

namespace
{

volatile std::sig_atomic_t handled = 0;

} // namespace

void manageSegFailure(int signal)
{
    handled = 1;

    // stdio is not async-signal-safe; write() is.
    std::array<char, 32> text{};
    const int length = snprintf(text.data(), text.size(), "Signal Error %d\n", signal);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
        if (write(stream, text.data(), size_t(length)) < 0)
            continue; // the stream is closed; the steps below are still needed
    }

    std::signal(signal, SIG_DFL);

    std::array<void *, 10> frames{};
    const int count = backtrace(frames.data(), int(frames.size()));
    backtrace_symbols_fd(frames.data(), count, STDERR_FILENO);

    QCoreApplication::exit(fatalSignalExitCode);
}

void installFatalSignalHandler()
{
    // The first backtrace() loads a library, which is not async-signal-safe.
    void *frame = nullptr;
    backtrace(&frame, 1);
    for (const int signal : {SIGSEGV, SIGILL, SIGFPE, SIGABRT})
        std::signal(signal, manageSegFailure);
}

bool fatalSignalHandled()
{
    return handled != 0;
}
