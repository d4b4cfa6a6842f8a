// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QSocketNotifier>

#include <memory>

// A pseudo-terminal in the place of the unit's serial port, and its far end.
class Pty
{
    Q_DISABLE_COPY(Pty)

public:
    Pty();
    ~Pty(); // the line is gone
    // Writes all bytes at once, as one arrival at the unit.
    void send(const QByteArray &bytes) const;
    // Everything that has come since the start or the last clear().
    const QByteArray &received() const { return heard; }
    void clear() { heard.clear(); }
    // While deaf, nothing is read: the line's buffer fills up.
    void setDeaf(bool deaf) { notifier->setEnabled(!deaf); }

private:
    void hear();

    int descriptor;
    std::unique_ptr<QSocketNotifier> notifier;
    QByteArray heard;
};
