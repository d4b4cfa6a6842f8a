#include "prompt.h"

#include "bench.h"
#include "commands.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <array>
#include <cstdio>
#include <stdexcept>
#include <unistd.h>

Prompt::Prompt(Bench &where) : bench(where)
{
    auto *notifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &Prompt::read);
}

void Prompt::read()
{
    std::array<char, 4096> buffer{};
    const ssize_t size = ::read(STDIN_FILENO, buffer.data(), buffer.size());
    if (size <= 0) {
        sender()->deleteLater();
        ended = true;
    } else {
        typed += QByteArray(buffer.data(), int(size));
    }
    for (int end = 0; (end = int(typed.indexOf('\n'))) >= 0; typed.remove(0, end + 1))
        lines.append(typed.left(end));
    work();
}

// A command runs the event loop while it waits, so more may be typed meanwhile.
void Prompt::work()
{
    if (working)
        return;
    working = true;
    while (!lines.isEmpty()) {
        try {
            commands::run(bench, lines.takeFirst());
        } catch (const std::runtime_error &error) {
            printf("%s\n", error.what());
            fflush(stdout);
        }
    }
    working = false;
    if (ended)
        QCoreApplication::exit(0);
}
