// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>

#include <optional>

namespace fastcgi
{
class Exchange;
}

// Access checks, for all programs behind the page's web server. Each function answers a request
// that it refuses.
namespace gate
{

void refuse(fastcgi::Exchange &exchange, int status, const char *why);

// Whether the request names the unit by its address or its own name.
bool isHostAllowed(fastcgi::Exchange &exchange);
// Whether it comes from the unit's own page.
bool isFromPage(fastcgi::Exchange &exchange);
// The body of a request from the unit's own page.
std::optional<QByteArray> ownBody(fastcgi::Exchange &exchange, const char *type, int limit);

} // namespace gate
