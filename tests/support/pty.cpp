// SPDX-License-Identifier: LicenseRef-KT6120
#include "pty.h"

#include "paths.h"

#include <QFile>

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

Pty::Pty() : descriptor(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK))
{
    // Raw from the start, so that nothing is echoed before the unit opens its end.
    termios settings{};
    tcgetattr(descriptor, &settings);
    cfmakeraw(&settings);
    tcsetattr(descriptor, TCSANOW, &settings);
    QFile::remove(paths::mcuSerialDevice);
    if (grantpt(descriptor) != 0 || unlockpt(descriptor) != 0
        || !QFile::link(ptsname(descriptor), paths::mcuSerialDevice))
        qFatal("no pseudo-terminal at %s: not in the sandbox?", paths::mcuSerialDevice);
    notifier = std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, [this] { hear(); });
}

Pty::~Pty()
{
    notifier.reset();
    close(descriptor);
    QFile::remove(paths::mcuSerialDevice);
}

void Pty::send(const QByteArray &bytes) const
{
    qint64 sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count =
            write(descriptor, bytes.constData() + sent, size_t(bytes.size() - sent));
        pollfd line{descriptor, POLLOUT, 0};
        if (count > 0)
            sent += count;
        else
            poll(&line, 1, 100); // the unit has not read yet
    }
}

void Pty::hear()
{
    std::array<char, 4096> buffer{};
    const ssize_t count = read(descriptor, buffer.data(), buffer.size());
    if (count > 0)
        heard.append(buffer.data(), int(count));
    else
        usleep(1000); // EIO while the unit has not opened its end
}
