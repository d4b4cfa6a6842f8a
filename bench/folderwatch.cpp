// SPDX-License-Identifier: LicenseRef-KT6120
#include "folderwatch.h"

#include <QFile>
#include <QSocketNotifier>

#include <array>
#include <chrono>
#include <stdexcept>
#include <sys/inotify.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace
{

constexpr auto lookupInterval = 100ms;
constexpr uint32_t interesting = IN_MODIFY | IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_ONLYDIR;

} // namespace

FolderWatch::FolderWatch(const QString &path, QObject *parent) : QObject(parent), folder(path)
{
    queue = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (queue < 0)
        throw std::runtime_error("no inotify queue left");
    notifier = new QSocketNotifier(queue, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &FolderWatch::read);
    // A folder in use goes away without a word, so it is looked up again and again; to watch
    // the same one twice changes nothing.
    lookup.setInterval(lookupInterval);
    connect(&lookup, &QTimer::timeout, this, &FolderWatch::watch);
    lookup.start();
    watch();
}

FolderWatch::~FolderWatch()
{
    delete notifier;
    ::close(queue);
}

void FolderWatch::watch()
{
    const int now = inotify_add_watch(queue, QFile::encodeName(folder).constData(), interesting);
    if (now >= 0 && now != watched)
        emit changed(); // it may hold something already
    watched = now;
}

void FolderWatch::read()
{
    std::array<char, 16384> events{};
    while (::read(queue, events.data(), events.size()) > 0)
        ;
    emit changed();
}
