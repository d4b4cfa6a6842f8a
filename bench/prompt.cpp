// SPDX-License-Identifier: LicenseRef-KT6120
#include "prompt.h"

#include "bench.h"
#include "commands.h"
#include "view.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSocketNotifier>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <unistd.h>

#include <readline/history.h>
#include <readline/readline.h>

Prompt *Prompt::current = nullptr;

Prompt::Prompt(Bench &where, View &view) : bench(where)
{
    current = this;
    rl_catch_signals = 0; // Ctrl-C ends the bench; bench/run puts the terminal right
    rl_variable_bind("enable-bracketed-paste", "off");
    rl_callback_handler_install("> ", &Prompt::take);
    auto *notifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, &rl_callback_read_char);
    connect(&view, &View::printing, &Prompt::hide);
    connect(&view, &View::printed, &Prompt::show);
}

Prompt::~Prompt()
{
    hide();
    rl_callback_handler_remove();
}

void Prompt::hide()
{
    rl_clear_visible_line();
    fflush(rl_outstream);
}

void Prompt::show()
{
    rl_on_new_line();
    rl_redisplay();
}

void Prompt::take(char *line)
{
    if (line && *line)
        add_history(line);
    if (line)
        current->lines.append(line);
    else
        current->ended = true;
    free(line);
    // Not from within readline: a command runs the event loop while it waits.
    QMetaObject::invokeMethod(current, &Prompt::work, Qt::QueuedConnection);
}

void Prompt::work()
{
    if (working)
        return; // more was typed while a command waits
    working = true;
    while (!lines.isEmpty()) {
        const QByteArray line = lines.takeFirst();
        QByteArray outcome;
        QElapsedTimer taken;
        taken.start();
        hide();
        try {
            commands::run(bench, line);
            if (line.trimmed().startsWith("expect"))
                outcome =
                    "met after " + QByteArray::number(double(taken.elapsed()) / 1000) + " s\n";
        } catch (const std::runtime_error &error) {
            outcome = QByteArray(error.what()) + '\n';
        }
        hide();
        printf("%s", outcome.constData());
        fflush(stdout);
        show();
    }
    working = false;
    if (ended)
        QCoreApplication::exit(0);
}
