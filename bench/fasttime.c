// SPDX-License-Identifier: LicenseRef-KT6120

// Makes time run fast for a Qt program while it rests: preloaded into it, with the file of the
// pace as BENCH_PACE in the environment. While the main loop waits in poll or sleeps,
// `speed` seconds pass for every second of the wall clock: the wait is cut accordingly, and the
// time skipped is added to every clock that Qt reads afterwards. With a `stride`, a wait in poll is
// drawn out to it first, so that shorter timers come once in that time. Waits for children and
// connections (which Qt makes with ppoll), GStreamer's clock and the program's working time are
// left alone.

#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

static const int64_t second = 1000000000;

// A page shared with the bench, which sets it (world/clock.py). Read and written as atomic words.
struct Pace {
    int64_t speed;   // seconds of the unit's time for each that the program rests; at least 1
    int64_t stride;  // ns of the unit's time that a rest lasts at least, unless something happens
    int64_t skipped; // ns by which the unit's clocks are ahead of the wall clock's
};

struct Range {
    const char *library;
    uintptr_t begin;
    uintptr_t end;
};
static struct Range qt = {.library = "/libQt5Core.so"};
static struct Range glib = {.library = "/libglib-2.0.so"};

static struct Pace ordinary = {.speed = 1};
static struct Pace *pace = &ordinary;

static int (*real_clock_gettime)(clockid_t, struct timespec *);
static int (*real_gettimeofday)(struct timeval *, void *);
static time_t (*real_time)(time_t *);
static int (*real_nanosleep)(const struct timespec *, struct timespec *);
static int (*real_poll)(struct pollfd *, nfds_t, int);

static int find(struct dl_phdr_info *info, size_t size, void *data)
{
    (void)size;
    struct Range *range = data;
    if (!strstr(info->dlpi_name, range->library))
        return 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr) *segment = &info->dlpi_phdr[i];
        if (segment->p_type == PT_LOAD && (segment->p_flags & PF_X)) {
            range->begin = info->dlpi_addr + segment->p_vaddr;
            range->end = range->begin + segment->p_memsz;
        }
    }
    return 1;
}

static int isFrom(const struct Range *range, const void *caller)
{
    return (uintptr_t)caller >= range->begin && (uintptr_t)caller < range->end;
}

// On the first call of all, which may come from another library's constructor.
static void prepare(void)
{
    if (real_poll)
        return;
    real_clock_gettime = (int (*)(clockid_t, struct timespec *))dlsym(RTLD_NEXT, "clock_gettime");
    real_gettimeofday = (int (*)(struct timeval *, void *))dlsym(RTLD_NEXT, "gettimeofday");
    real_time = (time_t(*)(time_t *))dlsym(RTLD_NEXT, "time");
    real_nanosleep =
        (int (*)(const struct timespec *, struct timespec *))dlsym(RTLD_NEXT, "nanosleep");
    dl_iterate_phdr(find, &qt);
    dl_iterate_phdr(find, &glib);
    const char *given = getenv("BENCH_PACE");
    const int file = given ? open(given, O_RDWR | O_CLOEXEC) : -1;
    if (file >= 0) {
        void *page = mmap(NULL, sizeof *pace, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        if (page != MAP_FAILED)
            pace = page;
        close(file);
    }
    unsetenv("LD_PRELOAD"); // the program's children live in ordinary time
    real_poll = (int (*)(struct pollfd *, nfds_t, int))dlsym(RTLD_NEXT, "poll");
}

static int64_t load(const int64_t *word)
{
    return __atomic_load_n(word, __ATOMIC_RELAXED);
}

static int64_t monotonic(void)
{
    struct timespec now;
    real_clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * second + now.tv_nsec;
}

int clock_gettime(clockid_t clock, struct timespec *now)
{
    prepare();
    const int result = real_clock_gettime(clock, now);
    const int moves = clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_RAW
                      || clock == CLOCK_MONOTONIC_COARSE || clock == CLOCK_REALTIME
                      || clock == CLOCK_REALTIME_COARSE;
    if (result == 0 && moves && isFrom(&qt, __builtin_return_address(0))) {
        const int64_t moved = now->tv_sec * second + now->tv_nsec + load(&pace->skipped);
        now->tv_sec = moved / second;
        now->tv_nsec = moved % second;
    }
    return result;
}

int gettimeofday(struct timeval *restrict now, void *restrict zone)
{
    prepare();
    const int result = real_gettimeofday(now, zone);
    if (result == 0 && isFrom(&qt, __builtin_return_address(0))) {
        const int64_t moved = now->tv_sec * second + now->tv_usec * 1000 + load(&pace->skipped);
        now->tv_sec = moved / second;
        now->tv_usec = moved % second / 1000;
    }
    return result;
}

time_t time(time_t *now)
{
    prepare();
    time_t moved = real_time(NULL);
    if (isFrom(&qt, __builtin_return_address(0)))
        moved += load(&pace->skipped) / second;
    if (now)
        *now = moved;
    return moved;
}

static int isMainThread(void)
{
    return syscall(SYS_gettid) == getpid();
}

static void skip(int64_t begin, int64_t speed)
{
    __atomic_fetch_add(&pace->skipped, (monotonic() - begin) * (speed - 1), __ATOMIC_RELAXED);
}

int nanosleep(const struct timespec *asked, struct timespec *left)
{
    prepare();
    const int64_t speed = load(&pace->speed);
    if (speed <= 1 || !isFrom(&qt, __builtin_return_address(0)) || !isMainThread())
        return real_nanosleep(asked, left);
    const int64_t wait = (asked->tv_sec * second + asked->tv_nsec) / speed;
    const struct timespec limit = {.tv_sec = wait / second, .tv_nsec = wait % second};
    const int64_t begin = monotonic();
    const int result = real_nanosleep(&limit, left); // what is left of it may be a little short
    skip(begin, speed);
    return result;
}

int poll(struct pollfd *descriptors, nfds_t count, int timeout)
{
    prepare();
    const int64_t speed = load(&pace->speed);
    if (speed <= 1 || timeout == 0 || !isFrom(&glib, __builtin_return_address(0))
        || !isMainThread())
        return real_poll(descriptors, count, timeout);
    const int64_t asked = timeout * (second / 1000);
    const int64_t stride = load(&pace->stride);
    const int64_t wait = (asked > stride ? asked : stride) / speed;
    const struct timespec limit = {.tv_sec = wait / second, .tv_nsec = wait % second};
    const int64_t begin = monotonic();
    const int result = ppoll(descriptors, count, timeout < 0 ? NULL : &limit, NULL);
    skip(begin, speed);
    return result;
}
