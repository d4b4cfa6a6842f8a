// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QString>

// Reading the unit's own network state from the texts that the system gives out.
namespace network
{

// The broadcast address in the lines of `ifconfig` that mention one. Empty unless exactly one
// interface has a broadcast address ("inet A netmask M broadcast B"): with several, which of
// them leads to the phone is anybody's guess. Warns of one that is not IPv4.
QString broadcastAddress(const QByteArray &listing);

// The gateway of the first default route in the text of the kernel's route table, as dotted
// IPv4; empty when there is no default route.
QString defaultGateway(const QByteArray &routeTable);

// Whether the text parses as an IPv4 host address.
bool isIPv4(const QString &address);

} // namespace network
