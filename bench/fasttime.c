// SPDX-License-Identifier: LicenseRef-KT6120

// Makes time run fast for a Qt program while it is idle. It is preloaded into the program; the
// environment variable BENCH_PACE names the file of the pace. While the main loop is idle (GLib
// waits in its poll function) or sleeps, `speed` seconds pass for every second of the wall clock:
// the wait is shortened, and the skipped time is added to every clock that Qt reads afterwards.
// With a `stride`, an idle period lasts at least that long, so that shorter timers fire once in it.
// Qt's own waits for children and connections, GStreamer's clock and the program's working time
// do not change.

#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <glib.h>
#include <link.h>
#include <poll.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

static const int64_t second = 1000000000;
static const int64_t millisecond = 1000000;

// A page shared with the bench, which sets it (world.py).
struct Pace {
    // Seconds of the unit's time for each second that the program is idle; at least 1.
    _Atomic int64_t speed;
    // The least length of an idle period in ns of the unit's time, unless something happens.
    _Atomic int64_t stride;
    // ns by which the unit's clocks are ahead of the wall clock's.
    _Atomic int64_t skipped;
};
static struct Pace ordinary = {.speed = 1};
static struct Pace *pace = &ordinary;

static int is_qt(void *caller)
{
    struct dl_find_object found;
    return _dl_find_object(caller, &found) == 0
           && strstr(found.dlfo_link_map->l_name, "/libQt5Core.so");
}

static int64_t nanoseconds(const struct timespec *time)
{
    return time->tv_sec * second + time->tv_nsec;
}

static struct timespec timespec(int64_t time)
{
    return (struct timespec){.tv_sec = time / second, .tv_nsec = time % second};
}

// A clock as the caller sees it.
static int64_t read_clock(clockid_t clock, void *caller)
{
    struct timespec now;
    syscall(SYS_clock_gettime, clock, &now);
    return nanoseconds(&now) + (is_qt(caller) ? pace->skipped : 0);
}

int clock_gettime(clockid_t clock, struct timespec *now)
{
    if (clock == CLOCK_PROCESS_CPUTIME_ID || clock == CLOCK_THREAD_CPUTIME_ID || clock < 0)
        return (int)syscall(SYS_clock_gettime, clock, now);
    *now = timespec(read_clock(clock, __builtin_return_address(0)));
    return 0;
}

int gettimeofday(struct timeval *restrict now, void *restrict zone)
{
    (void)zone;
    const int64_t moved = read_clock(CLOCK_REALTIME, __builtin_return_address(0));
    *now = (struct timeval){.tv_sec = moved / second, .tv_usec = moved % second / 1000};
    return 0;
}

static void skip(int64_t begin, int64_t speed)
{
    pace->skipped += (read_clock(CLOCK_MONOTONIC, NULL) - begin) * (speed - 1);
}

// Only the main thread's sleep is shortened.
int nanosleep(const struct timespec *asked, struct timespec *left)
{
    const int is_main = syscall(SYS_gettid) == getpid();
    const int64_t speed = is_main && is_qt(__builtin_return_address(0)) ? pace->speed : 1;
    const struct timespec limit = timespec(nanoseconds(asked) / speed);
    const int64_t begin = read_clock(CLOCK_MONOTONIC, NULL);
    const int result = (int)syscall(SYS_nanosleep, &limit, left);
    skip(begin, speed);
    return result;
}

// The poll function of the main loop; `timeout` in milliseconds, without end if negative.
static int rest(GPollFD *files, guint count, int timeout)
{
    const int64_t speed = timeout == 0 ? 1 : pace->speed;
    const int64_t stride = speed > 1 ? pace->stride : 0;
    const int64_t asked = timeout * millisecond;
    const struct timespec limit = timespec((asked > stride ? asked : stride) / speed);
    const int64_t begin = read_clock(CLOCK_MONOTONIC, NULL);
    const int result = ppoll((struct pollfd *)files, count, timeout < 0 ? NULL : &limit, NULL);
    skip(begin, speed);
    return result;
}

__attribute__((constructor)) static void prepare(void)
{
    const char *given = getenv("BENCH_PACE");
    const int file = given ? open(given, O_RDWR | O_CLOEXEC) : -1;
    void *page = mmap(NULL, sizeof *pace, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (page != MAP_FAILED)
        pace = page;
    close(file);
    unsetenv("LD_PRELOAD"); // the program's children have ordinary time
    g_main_context_set_poll_func(NULL, rest);
}
