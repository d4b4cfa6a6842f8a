// SPDX-License-Identifier: LicenseRef-KT6120
#include "serialline.h"

#include <QFile>
#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
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

SerialLine::SerialLine(int file)
    : descriptor(file), notifier(new QSocketNotifier(file, QSocketNotifier::Read, this))
{
    connect(notifier, &QSocketNotifier::activated, this, &SerialLine::hear);
}

SerialLine::~SerialLine()
{
    hangUp();
}

std::unique_ptr<SerialLine> SerialLine::toSocket(const QString &path)
{
    const int file = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    strncpy(place.sun_path, QFile::encodeName(path).constData(), sizeof place.sun_path - 1);
    if (file < 0 || ::connect(file, reinterpret_cast<sockaddr *>(&place), sizeof place) != 0) {
        ::close(file);
        throw std::runtime_error("nobody is at " + path.toStdString());
    }
    fcntl(file, F_SETFL, O_NONBLOCK);
    return std::unique_ptr<SerialLine>(new SerialLine(file));
}

std::unique_ptr<SerialLine> SerialLine::onTerminal(const QString &device)
{
    const int file =
        ::open(QFile::encodeName(device).constData(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    termios settings{};
    if (file < 0 || tcgetattr(file, &settings) != 0) {
        ::close(file);
        throw std::runtime_error("cannot open " + device.toStdString());
    }
    cfmakeraw(&settings);
    cfsetspeed(&settings, B115200);
    settings.c_cflag |= CLOCAL; // nobody tells when the other end is there
    tcsetattr(file, TCSANOW, &settings);
    return std::unique_ptr<SerialLine>(new SerialLine(file));
}

void SerialLine::send(const QByteArray &bytes)
{
    qint64 sent = 0;
    while (descriptor >= 0 && sent < bytes.size()) {
        const ssize_t written =
            ::write(descriptor, bytes.constData() + sent, size_t(bytes.size() - sent));
        if (written > 0)
            sent += written;
        else if (errno == EAGAIN)
            waitUntilWritable(descriptor); // the other end has not read yet
        else if (errno != EINTR)
            return;
    }
}

void SerialLine::hangUp()
{
    delete notifier;
    notifier = nullptr;
    if (descriptor >= 0)
        ::close(descriptor);
    descriptor = -1;
}

void SerialLine::setDeaf(bool deaf)
{
    if (notifier)
        notifier->setEnabled(!deaf);
}

void SerialLine::hear()
{
    std::array<char, 4096> buffer{};
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count == 0) {
        hangUp(); // the other end has; a notifier would tell so for ever
        return;
    }
    if (count < 0) {
        // EIO while no slave is open: nothing to hear until the unit opens its end.
        if (errno == EIO)
            usleep(1000);
        return;
    }
    const QByteArray bytes(buffer.data(), int(count));
    heard += bytes;
    emit arrived(bytes);
}
