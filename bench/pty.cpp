// SPDX-License-Identifier: LicenseRef-KT6120
#include "pty.h"

#include <QFile>

#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <termios.h>

namespace
{

int openTerminal(const QString &link)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
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
    return master;
}

} // namespace

Pty::Pty(const QString &place) : SerialLine(openTerminal(place)), link(place) {}

Pty::~Pty()
{
    QFile::remove(link);
}
