// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QSettings>
#include <QString>

// An INI file that this program alone writes, made safe against what a power cut or a full disk
// does. A lock that lies beside it when it is opened was left by a power cut and is removed:
// empty or garbled, it would block the first write for half a minute. While the disk has no
// room to spare nothing is written, since the settings library takes a new file that came out
// short for a good one; the changes are kept and written when there is room again.
class IniFile : public QSettings
{
public:
    explicit IniFile(const QString &path);

    // Writes the changes at once if there is room, else when there is.
    void write();

protected:
    // The write that the event loop does after a change.
    bool event(QEvent *event) override;

private:
    bool hasRoom() const;

    const QByteArray folder;
};
