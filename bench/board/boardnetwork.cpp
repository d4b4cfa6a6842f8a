// SPDX-License-Identifier: LicenseRef-KT6120
#include "boardnetwork.h"

#include "board.h"

#include <QHostAddress>

#include <algorithm>
#include <stdexcept>

namespace
{

// The adapters that the board knows by name, by their number.
constexpr const char *adapters[] = {"usb0", "eth0", "wlan0"};

// As the board shows an adapter; written to, it lets go of it. An adapter that is pulled while the
// board reads from it makes the emulator end.
QByteArray deviceFile(const QString &name, const char *file)
{
    return "/sys/class/net/" + name.toUtf8() + "/device/../" + file;
}

} // namespace

BoardNetwork::BoardNetwork(Journal &notes, Board &which) : PhoneNetwork(notes), board(which) {}

BoardNetwork::~BoardNetwork()
{
    for (auto &server : servers) {
        server.second->kill();
        server.second->waitForFinished();
    }
}

void BoardNetwork::plugIn(const QString &name, const QString &address, const QString &gateway)
{
    const auto *const adapter = std::find(std::begin(adapters), std::end(adapters), name);
    if (adapter == std::end(adapters))
        throw std::runtime_error("the board has no adapter " + name.toStdString());
    // A phone that is no gateway gives addresses all the same, from the last one of the network.
    const auto [network, prefix] = QHostAddress::parseSubnet(address);
    const quint32 last = (network.toIPv4Address() | (0xffffffffU >> prefix)) - 1;
    const QString phone = gateway.isEmpty() ? QHostAddress(last).toString() : gateway;
    const QString unit = address.section('/', 0, 0);
    const QString mask = QHostAddress(0xffffffffU << (32 - prefix)).toString();

    phoneIp("tuntap add " + name + " mode tap");
    phoneIp(QString("addr add %1/%2 broadcast + dev %3").arg(phone).arg(prefix).arg(name));
    phoneIp("link set " + name + " up");
    auto server = std::make_unique<QProcess>();
    {
        const InPhone inPhone(*this);
        server->start("dnsmasq",
                      {"--no-daemon", "--conf-file=/dev/null", "--port=0", "--pid-file=",
                       "--leasefile-ro", "--dhcp-authoritative", "--no-ping", "--bind-interfaces",
                       "--interface=" + name, "--dhcp-range=" + unit + ',' + unit + ',' + mask,
                       "--dhcp-option=option:router" + (gateway.isEmpty() ? "" : ',' + gateway)});
        if (!server->waitForStarted())
            throw std::runtime_error("cannot start dnsmasq");
    }
    servers[name] = std::move(server);
    board.emulator.plugIn(name, int(adapter - std::begin(adapters)) + 1);
    board.carryOut("expect file " + deviceFile(name, "idVendor") + " 0");
    if (servers[name]->state() == QProcess::NotRunning)
        throw std::runtime_error("dnsmasq has ended: "
                                 + servers[name]->readAllStandardError().toStdString());
}

void BoardNetwork::unplug(const QString &name)
{
    board.carryOut("file " + deviceFile(name, "remove") + " 1");
    board.emulator.unplug(name);
    const auto server = servers.find(name);
    server->second->kill();
    server->second->waitForFinished();
    servers.erase(server);
    phoneIp("link del " + name);
}
