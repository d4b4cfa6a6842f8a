// SPDX-License-Identifier: LicenseRef-KT6120

// kt6120-web: the unit's HTTP API, behind a web server that speaks FastCGI.
//
//   kt6120-web SOCKET

#include "fastcgi.h"
#include "httpapi.h"

#include <chrono>
#include <cstdio>
#include <malloc.h>
#include <stdexcept>
#include <systemd/sd-daemon.h>
#include <thread>

namespace
{

// Each of the eight viewers holds one.
constexpr int threads = 24;
// Also without a viewer: the first one sees since when the unit has been silent.
constexpr std::chrono::seconds lookInterval(5);

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 2 || argv[1][0] == '-') {
        fprintf(stderr, "usage: kt6120-web SOCKET\n");
        return 2;
    }
    // With an arena each, every thread keeps the memory of the longest history that it has sent.
    mallopt(M_ARENA_MAX, 1);
    try {
        HttpApi api;
        std::thread([&api] {
            for (;; std::this_thread::sleep_for(lookInterval)) {
                api.look(); // takes the locks of all requests
                sd_notify(0, "WATCHDOG=1");
            }
        }).detach();
        fastcgi::serve(argv[1], threads,
                       [&api](fastcgi::Exchange &exchange) { api.handle(exchange); });
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "kt6120-web: %s\n", error.what());
    }
    return 1;
}
