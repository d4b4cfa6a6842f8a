// SPDX-License-Identifier: LicenseRef-KT6120
#include "whep.h"

#include "fastcgi.h"
#include "gate.h"

using namespace std::chrono_literals;
using gate::refuse;
using std::chrono::steady_clock;

namespace
{

constexpr char path[] = "/api/picture";
constexpr std::size_t mostViewers = 4;
constexpr int longestOffer = 16 * 1024; // bytes
constexpr auto restAfter = 10s;

} // namespace

Whep::Whep()
    : used(steady_clock::now()), source([this](GstBuffer *frame) {
          const std::lock_guard lock(mutex);
          for (const auto &[name, viewer] : viewers)
              viewer->show(frame);
      })
{
}

void Whep::handle(fastcgi::Exchange &exchange)
{
    const QByteArray asked = exchange.variable("SCRIPT_NAME") + exchange.variable("PATH_INFO");
    const QByteArray method = exchange.variable("REQUEST_METHOD");
    const QByteArray viewing = QByteArray(path) + '/';
    if (!gate::isHostAllowed(exchange))
        return;
    if (asked != path && !asked.startsWith(viewing))
        refuse(exchange, 404, "no such path");
    else if (method != (asked == path ? "POST" : "DELETE"))
        refuse(exchange, 405, "wrong method");
    else if (asked == path)
        begin(exchange);
    else
        end(exchange, asked.mid(viewing.size()));
}

void Whep::begin(fastcgi::Exchange &exchange)
{
    const auto offer = gate::ownBody(exchange, "application/sdp", longestOffer);
    if (!offer)
        return;
    look();
    try {
        if (viewers.size() >= mostViewers)
            throw Refusal(503, "four viewers already watch");
        auto viewer = std::make_unique<Viewer>(*offer, exchange.variable("SERVER_ADDR"));
        g_autofree char *name = g_uuid_string_random();
        exchange.answer(201, "application/sdp", viewer->answer(),
                        QByteArray(path) + "/" + QByteArray(name));
        const std::lock_guard lock(mutex);
        viewers.emplace(name, std::move(viewer));
    } catch (const Refusal &refusal) {
        refuse(exchange, refusal.status, refusal.what());
    }
}

void Whep::end(fastcgi::Exchange &exchange, const QByteArray &name)
{
    if (!gate::isFromPage(exchange))
        return;
    std::unique_lock lock(mutex);
    const auto gone = viewers.extract(name);
    lock.unlock();
    if (gone)
        exchange.answer(200, "text/plain", {});
    else
        refuse(exchange, 404, "no such viewer");
}

bool Whep::look()
{
    source.look();
    for (auto next = viewers.begin(); next != viewers.end();) {
        const auto viewer = next++;
        if (viewer->second->isGone()) {
            std::unique_lock lock(mutex);
            const auto gone = viewers.extract(viewer);
            lock.unlock();
        }
    }
    if (!viewers.empty())
        used = steady_clock::now();
    return steady_clock::now() - used < restAfter;
}
