// SPDX-License-Identifier: LicenseRef-KT6120
#include "freshness.h"

#include "paths.h"
#include "timestamp.h"

#include <sys/stat.h>

namespace
{

// A unit writes its store every 15 s at least, and no single wait blocks its event loop for longer
// than half a minute.
constexpr double silentAfter = 60; // seconds

} // namespace

Freshness::Freshness() : mark(markOfStore())
{
    if (mark != Mark())
        since = timestamp::text(QDateTime::fromSecsSinceEpoch(mark[2]));
}

Freshness::Mark Freshness::markOfStore()
{
    struct stat file = {};
    if (stat(paths::statusStore, &file) != 0 || !S_ISREG(file.st_mode))
        return {};
    return {qint64(file.st_ino),  file.st_size,        file.st_mtim.tv_sec,
            file.st_mtim.tv_nsec, file.st_ctim.tv_sec, file.st_ctim.tv_nsec};
}

Freshness::State Freshness::look()
{
    const std::lock_guard lock(mutex);
    const auto now = std::chrono::steady_clock::now();
    const Mark found = markOfStore();
    const bool exists = found != Mark();
    if (exists && found != mark) {
        changed = now;
        since = timestamp::now();
    }
    mark = found;
    State state;
    state.since = since;
    if (changed) {
        state.age = std::chrono::duration<double>(now - *changed).count();
        state.silent = !exists || state.age > silentAfter;
    }
    return state;
}
