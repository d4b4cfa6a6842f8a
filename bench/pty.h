// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QObject>

class QSocketNotifier;

// The far end of the unit's serial line: a pseudo-terminal whose slave is linked at a place, the
// unit's serial device where no other is given.
class Pty : public QObject
{
    Q_OBJECT

public:
    static constexpr char serialDevice[] = "/dev/serial0";

    // Makes the terminal and the link. Throws std::runtime_error where either fails.
    explicit Pty(const QString &place = serialDevice);
    ~Pty() override; // the line is gone, the link removed

    // Writes all bytes at once, as one arrival at the unit.
    void send(const QByteArray &bytes);

    // Everything the unit has written since the start or the last clear().
    const QByteArray &received() const { return heard; }
    void clear() { heard.clear(); }

    // Closes the master: every read and write of the unit fails from now on.
    void hangUp();
    // While deaf, nothing is read: the line's buffer fills up.
    void setDeaf(bool deaf);

signals:
    void arrived(const QByteArray &bytes);

private:
    void read();

    QString link;
    int master = -1;
    QSocketNotifier *notifier = nullptr;
    QByteArray heard;
};
