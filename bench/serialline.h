// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QObject>

#include <memory>

class QSocketNotifier;

// The bench's end of a serial line, whatever carries it.
class SerialLine : public QObject
{
    Q_OBJECT

public:
    ~SerialLine() override; // the line is gone

    // All throw std::runtime_error where they cannot be had.
    static std::unique_ptr<SerialLine> toSocket(const QString &path);
    static std::unique_ptr<SerialLine> onTerminal(const QString &device); // raw, without echo

    // Writes all bytes at once, as one arrival at the unit.
    void send(const QByteArray &bytes);

    // Everything that has come since the start or the last clear().
    const QByteArray &received() const { return heard; }
    void clear() { heard.clear(); }

    // Closes this end: every read and write at the other fails from now on.
    void hangUp();
    // While deaf, nothing is read: the line's buffer fills up.
    void setDeaf(bool deaf);

    // Hears what has come by now, as the event loop does by itself.
    void hear();

signals:
    void arrived(const QByteArray &bytes);

protected:
    // Of an open, non-blocking file, which it closes.
    explicit SerialLine(int file);

private:
    int descriptor;
    QSocketNotifier *notifier;
    QByteArray heard;
};
