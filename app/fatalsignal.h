// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

// Handler of SIGSEGV, SIGILL, SIGFPE and SIGABRT: prints "Signal Error N" on standard output and
// standard error and up to ten stack frames on standard error, restores the signal's default action
// and exits the event loop with fatalSignalExitCode. If the fault repeats when the handler returns,
// the default action ends the process.
void manageSegFailure(int signal);

// Installs manageSegFailure for the four signals.
void installFatalSignalHandler();

// True after a fatal signal. QCoreApplication::exit() has no effect before exec(), so start-up
// checks this in the event loop.
bool fatalSignalHandled();

inline constexpr int fatalSignalExitCode = 3;
