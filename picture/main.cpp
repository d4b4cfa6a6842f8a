// SPDX-License-Identifier: LicenseRef-KT6120

// kt6120-picture: the unit's picture for browsers, behind a web server that speaks FastCGI.
//
// Standard input is the listening socket. Exits ten seconds after the last viewer.

#include "fastcgi.h"
#include "whep.h"

#include <cstdio>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <systemd/sd-daemon.h>
#include <unistd.h>

namespace
{

constexpr int lookInterval = 1000; // ms

// Loads only these plug-ins, from the system's folder, so that GStreamer needs no registry.
void loadElements()
{
    constexpr const char *plugins[] = {
        "app", "coreelements",    "dtls",  "nice", "rtp", "rtpmanager", "srtp",
        "udp", "videoparsersbad", "webrtc"};
    g_setenv("GST_REGISTRY_DISABLE", "yes", TRUE);
    gst_init(nullptr, nullptr);
    for (const char *name : plugins) {
        const std::string file = std::string(GSTREAMER_PLUGINS "/libgst") + name + ".so";
        g_autoptr(GError) error = nullptr;
        g_autoptr(GstPlugin) plugin = gst_plugin_load_file(file.c_str(), &error);
        if (!plugin)
            throw std::runtime_error(error->message);
    }
}

} // namespace

int main()
{
    try {
        loadElements();
        Whep whep;
        pollfd listening = {STDIN_FILENO, POLLIN, 0};
        while (whep.look()) {
            sd_notify(0, "WATCHDOG=1");
            if (poll(&listening, 1, lookInterval) == 0)
                continue;
            if (!fastcgi::serveNext(listening.fd,
                                    [&](fastcgi::Exchange &exchange) { whep.handle(exchange); }))
                throw std::runtime_error("standard input must be a listening socket");
        }
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "kt6120-picture: %s\n", error.what());
        return 1;
    }
    return 0;
}
