// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QString>

// Parsers of the system's network state.
namespace network
{

// The broadcast address in those lines of `ifconfig` that contain one. Empty unless exactly one
// interface has a broadcast address ("inet A netmask M broadcast B"): with several, the phone's
// is ambiguous. Logs a warning if it is not IPv4.
QString broadcastAddress(const QByteArray &listing);

// The gateway of the first default route in the text of the kernel's route table, as dotted
// IPv4; empty if there is no default route.
QString defaultGateway(const QByteArray &routeTable);

// Whether the text parses as an IPv4 host address.
bool isIPv4(const QString &address);

} // namespace network
