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

constexpr auto retryInterval = 100ms;
constexpr uint32_t interesting = IN_MODIFY | IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_ONLYDIR;

} // namespace

FolderWatch::FolderWatch(const QString &path, QObject *parent) : QObject(parent), folder(path)
{
    queue = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (queue < 0)
        throw std::runtime_error("no inotify queue left");
    notifier = new QSocketNotifier(queue, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &FolderWatch::read);
    retry.setInterval(retryInterval);
    connect(&retry, &QTimer::timeout, this, &FolderWatch::watch);
    watch();
}

FolderWatch::~FolderWatch()
{
    delete notifier;
    ::close(queue);
}

void FolderWatch::watch()
{
    if (inotify_add_watch(queue, QFile::encodeName(folder).constData(), interesting) < 0) {
        retry.start();
        return;
    }
    retry.stop();
    emit changed(); // it may hold something already
}

void FolderWatch::read()
{
    alignas(inotify_event) std::array<char, 16384> buffer{};
    bool gone = false;
    ssize_t size = 0;
    while ((size = ::read(queue, buffer.data(), buffer.size())) > 0) {
        for (ssize_t at = 0; at < size;) {
            const auto *event = reinterpret_cast<const inotify_event *>(buffer.data() + at);
            gone = gone || (event->mask & IN_IGNORED);
            at += ssize_t(sizeof(inotify_event) + event->len);
        }
    }
    emit changed();
    if (gone)
        retry.start();
}
