// SPDX-License-Identifier: LicenseRef-KT6120

// The bench's far ends by themselves, for whoever measures or tries the program without the bench.
//
//   farend serial [LINK]   a serial line, linked at LINK (/dev/serial0): sends what comes on
//   standard
//                          input and writes what it hears to standard output
//   farend mcu [LINK]      the same line with the microcontroller, which answers
//   farend tap PORT        writes a byte at each packet of video to that port of this world
//
// "ready" on a line of its own comes first. Each runs until it is killed.

#include "journal.h"
#include "mcusimulator.h"
#include "pty.h"
#include "rtptap.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <unistd.h>

namespace
{

void print(const QByteArray &bytes)
{
    fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    fflush(stdout);
}

int run(const QStringList &arguments)
{
    const QString end = arguments.value(1);
    const QString place = arguments.value(2, Pty::serialDevice);
    std::unique_ptr<Pty> line;
    std::unique_ptr<McuSimulator> mcu;
    std::unique_ptr<RtpTap> tap;
    Journal journal;
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    input.setEnabled(false);
    if (end == "serial") {
        line = std::make_unique<Pty>(place);
        QObject::connect(line.get(), &Pty::arrived, print);
        QObject::connect(&input, &QSocketNotifier::activated, [&] {
            std::array<char, 4096> bytes{};
            const ssize_t size = read(STDIN_FILENO, bytes.data(), bytes.size());
            if (size > 0)
                line->send(QByteArray(bytes.data(), int(size)));
            else
                input.setEnabled(false);
        });
        input.setEnabled(true);
    } else if (end == "mcu") {
        mcu = std::make_unique<McuSimulator>(journal,
                                             [place] { return std::make_unique<Pty>(place); });
        QObject::connect(&journal, &Journal::noted, [](Kind kind, const QByteArray &text) {
            if (kind == Kind::Serial)
                print(text);
        });
    } else if (end == "tap" && arguments.size() == 3) {
        tap = std::make_unique<RtpTap>(arguments[2].toUShort(), nullptr);
        QObject::connect(tap.get(), &RtpTap::arrived, [] { print("."); });
    } else {
        fprintf(stderr, "usage: farend serial|mcu [LINK] or farend tap PORT\n");
        return 2;
    }
    print("ready\n");
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    try {
        return run(QCoreApplication::arguments());
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
