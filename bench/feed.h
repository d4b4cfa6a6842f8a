// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>

// Hands what happens on the bench's one thread to the threads that serve it. Keeps the last few
// pieces; who is too slow misses some.
class Feed
{
public:
    explicit Feed(size_t pieces) : most(pieces) {}

    void put(const QByteArray &piece)
    {
        const std::lock_guard lock(mutex);
        kept.push_back(piece);
        ++total;
        if (kept.size() > most)
            kept.pop_front();
        news.notify_all();
    }

    // The first piece behind the `seen` ones that is still kept; none when none comes in time.
    std::optional<QByteArray> take(quint64 &seen, std::chrono::milliseconds wait)
    {
        std::unique_lock lock(mutex);
        if (!news.wait_for(lock, wait, [&] { return total > seen; }))
            return std::nullopt;
        seen = qMax(seen + 1, quint64(total - kept.size() + 1));
        return kept[size_t(seen + kept.size() - total - 1)];
    }

private:
    const size_t most;
    std::mutex mutex;
    std::condition_variable news;
    std::deque<QByteArray> kept;
    quint64 total = 0;
};
