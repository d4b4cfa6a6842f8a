// SPDX-License-Identifier: LicenseRef-KT6120
#include "gate.h"

#include "fastcgi.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <arpa/inet.h>
#include <array>
#include <climits>
#include <unistd.h>

namespace
{

// Against DNS rebinding: the owner of an internet name can point it at the unit, and the browser
// then takes his page for ours. lighttpd passes the name in lower case without the final dot.
bool isOwnName(QByteArray host)
{
    if (host.startsWith('['))
        host = host.mid(1, host.indexOf(']') - 1);
    else
        host.truncate(host.contains(':') ? int(host.indexOf(':')) : int(host.size()));
    in6_addr address = {};
    std::array<char, HOST_NAME_MAX + 1> name{};
    gethostname(name.data(), name.size() - 1);
    return inet_pton(AF_INET, host.constData(), &address) == 1
           || inet_pton(AF_INET6, host.constData(), &address) == 1 || host == "localhost"
           || host.endsWith(".local") || host == QByteArray(name.data()).toLower();
}

} // namespace

namespace gate
{

void refuse(fastcgi::Exchange &exchange, int status, const char *why)
{
    exchange.answer(status, "application/json",
                    QJsonDocument(QJsonObject{{"error", why}}).toJson(QJsonDocument::Compact));
}

bool isHostAllowed(fastcgi::Exchange &exchange)
{
    const QByteArray host = exchange.variable("HTTP_HOST");
    // A browser sends the password only to the name it was entered for.
    if (host.isEmpty() || !exchange.variable("REMOTE_USER").isEmpty() || isOwnName(host))
        return true;
    refuse(exchange, 421, "only by the unit's address or host name");
    return false;
}

// Against cross-site requests: another site's page cannot omit or change its Origin.
bool isFromPage(fastcgi::Exchange &exchange)
{
    QByteArray origin = exchange.variable("HTTP_ORIGIN");
    if (origin.endsWith('.')) // lighttpd removes the host's
        origin.chop(1);
    const QByteArray host = exchange.variable("HTTP_HOST");
    if (!host.isEmpty() && (origin == "http://" + host || origin == "https://" + host))
        return true;
    refuse(exchange, 403, "only from the unit's own page");
    return false;
}

// Nor can another site's page send another content type than a form's without a preflight request.
std::optional<QByteArray> ownBody(fastcgi::Exchange &exchange, const char *type, int limit)
{
    if (!isFromPage(exchange))
        return std::nullopt;
    if (exchange.variable("CONTENT_TYPE") != type) {
        refuse(exchange, 415, ("the content type must be " + QByteArray(type)).constData());
        return std::nullopt;
    }
    QByteArray body = exchange.body(limit);
    if (body.size() > limit) {
        refuse(exchange, 413, "the body is too long");
        return std::nullopt;
    }
    return body;
}

} // namespace gate
