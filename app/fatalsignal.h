// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

// Handler of SIGSEGV, SIGILL, SIGFPE and SIGABRT: prints "Signal Error N" on standard output
// and standard error and up to ten stack frames on standard error, restores the signal's
// default action and asks the event loop to end with fatalSignalExitCode. A fault that
// repeats on return then ends the process by the default action.
void manageSegFailure(int signal);

// Installs manageSegFailure for the four signals.
void installFatalSignalHandler();

// True once a fatal signal has been handled. An exit that is asked for before the event loop
// runs is forgotten when it starts, so start-up has to look.
bool fatalSignalHandled();

inline constexpr int fatalSignalExitCode = 3;
