// SPDX-License-Identifier: LicenseRef-KT6120

// bench: the virtual unit. Runs in the world that bench/sandbox makes, with an installed tree;
// see bench/run.
//
//   bench [--speed N] FILE    plays a scenario; exit status 0 when all it expects is met
//   bench [--speed N] [--address ADDRESS]
//                             starts the unit and its page and takes commands from standard input;
//                             says that the desk finds the page at the address
//   bench --board FOLDER [FILE]
//                             the same with an emulated board, whose card and sockets are there
//   bench --agent CONSOLE     the unit's side of it, on the board

#include "bench.h"
#include "board/agent.h"
#include "commands.h"
#include "prompt.h"
#include "scenario.h"
#include "view.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTimer>

#include <cstdio>
#include <optional>
#include <stdexcept>
#include <unistd.h>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCommandLineParser options;
    options.addOption({"speed", "The program's timers run N times as fast.", "N", "1"});
    options.addOption({"address", "Where the desk finds the unit's page.", "ADDRESS"});
    options.addOption({"board", "Plays on an emulated board.", "FOLDER"});
    options.addOption({"agent", "Is the unit's side, on the board itself.", "CONSOLE"});
    options.addPositionalArgument("file", "A scenario to play.", "[FILE]");
    options.addHelpOption();
    options.process(application);

    try {
        if (options.isSet("agent")) {
            Bench bench(Side::Unit);
            const Agent agent(bench, options.value("agent"));
            return QCoreApplication::exec();
        }
        const QString board = options.value("board");
        Bench bench(board.isEmpty() ? Side::Both : Side::World, board);
        View view(bench.journal, bench.clock, isatty(STDOUT_FILENO));
        bench.setSpeed(qMax(1, options.value("speed").toInt()));
        const QStringList scenarios = options.positionalArguments();
        if (!scenarios.isEmpty()) {
            scenario::play(bench, scenarios.first().toLocal8Bit());
            return 0;
        }
        commands::run(bench, "unit start");
        if (options.isSet("address")) {
            bench.webServer();
            printf("The unit's page: %s\n", qPrintable(options.value("address")));
        }
        printf("The unit runs. \"help\" lists the commands, \"quit\" or Ctrl-C ends it.\n");
        Prompt prompt(bench, view);
        return QCoreApplication::exec();
    } catch (const std::runtime_error &error) {
        fflush(stdout);
        fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
