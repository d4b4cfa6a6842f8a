// SPDX-License-Identifier: LicenseRef-KT6120
#include "pty.h"

#include <QFile>
#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <termios.h>
#include <unistd.h>

namespace
{

void waitUntilWritable(int descriptor)
{
    pollfd line{descriptor, POLLOUT, 0};
    poll(&line, 1, 100);
}

} // namespace

Pty::Pty(const QString &place) : link(place)
{
    master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
        throw std::runtime_error("cannot make a pseudo-terminal");
    // Raw from the start, so that nothing is echoed before the unit opens its end.
    termios settings{};
    tcgetattr(master, &settings);
    cfmakeraw(&settings);
    tcsetattr(master, TCSANOW, &settings);

    QFile::remove(link);
    if (!QFile::link(ptsname(master), link))
        throw std::runtime_error("cannot link " + link.toStdString() + ": not in the sandbox?");
    notifier = new QSocketNotifier(master, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &Pty::read);
}

Pty::~Pty()
{
    hangUp();
    QFile::remove(link);
}

void Pty::send(const QByteArray &bytes)
{
    qint64 sent = 0;
    while (master >= 0 && sent < bytes.size()) {
        const ssize_t written =
            ::write(master, bytes.constData() + sent, size_t(bytes.size() - sent));
        if (written > 0)
            sent += written;
        else if (errno == EAGAIN)
            waitUntilWritable(master); // the unit has not read yet
        else
            return;
    }
}

void Pty::hangUp()
{
    delete notifier;
    notifier = nullptr;
    if (master >= 0)
        ::close(master);
    master = -1;
}

void Pty::setDeaf(bool deaf)
{
    if (notifier)
        notifier->setEnabled(!deaf);
}

void Pty::read()
{
    std::array<char, 4096> buffer{};
    const ssize_t count = ::read(master, buffer.data(), buffer.size());
    if (count <= 0) {
        // EIO while no slave is open: nothing to hear until the unit opens its end.
        if (count < 0 && errno == EIO)
            usleep(1000);
        return;
    }
    const QByteArray bytes(buffer.data(), int(count));
    heard += bytes;
    emit arrived(bytes);
}
