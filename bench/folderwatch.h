// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

class QSocketNotifier;

// Tells when anything changes in a folder: a file created, written, renamed or removed.
// A folder that is missing or goes away is looked for again.
class FolderWatch : public QObject
{
    Q_OBJECT

public:
    explicit FolderWatch(const QString &path, QObject *parent = nullptr);
    ~FolderWatch() override;

signals:
    void changed();

private:
    void watch();
    void read();

    QString folder;
    int queue = -1; // the inotify descriptor
    QSocketNotifier *notifier;
    int watched = -1; // the folder's watch in the queue
    QTimer lookup;
};
