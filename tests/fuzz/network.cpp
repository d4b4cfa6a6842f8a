// SPDX-License-Identifier: LicenseRef-KT6120

// The kernel's route table and the listing of the network interfaces: what comes out of them
// goes into a script's arguments and a connection attempt.

#include "fuzzworld.h"

#include "network.h"

void fuzz::start() {}

void fuzz::input(const QByteArray &bytes)
{
    for (const QString &address :
         {network::broadcastAddress(bytes), network::defaultGateway(bytes)})
        require(address.isEmpty() || network::isIPv4(address), "an address is IPv4");
}
