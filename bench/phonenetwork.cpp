// SPDX-License-Identifier: LicenseRef-KT6120
#include "phonenetwork.h"

#include "journal.h"
#include "programs.h"

#include <QCoreApplication>

#include <fcntl.h>
#include <sched.h>
#include <stdexcept>
#include <unistd.h>

namespace
{

void enter(int space)
{
    if (setns(space, CLONE_NEWNET) != 0)
        throw std::runtime_error("cannot change the network namespace");
}

int currentSpace()
{
    return open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
}

} // namespace

PhoneNetwork::PhoneNetwork(Journal &notes) : journal(notes)
{
    unitSpace = currentSpace();
    if (unshare(CLONE_NEWNET) != 0)
        throw std::runtime_error("cannot make the phone's network: not in the sandbox?");
    phoneSpace = currentSpace();
    enter(unitSpace);
    phonePlace = QString("/proc/%1/fd/%2").arg(QCoreApplication::applicationPid()).arg(phoneSpace);
    phoneIp("link set lo up");
}

PhoneNetwork::~PhoneNetwork()
{
    close(phoneSpace);
    close(unitSpace);
}

void PhoneNetwork::up(const QString &name, const QString &address, const QString &gateway)
{
    if (peers.contains(name))
        down(name);
    plugIn(name, address, gateway);
    const QString peer = gateway + address.mid(address.indexOf('/'));
    peers.insert(name, gateway.isEmpty() ? QString() : peer);
    journal.note(Kind::Network,
                 QString("%1 up: %2, gateway %3\n")
                     .arg(name, address, gateway.isEmpty() ? QString("none") : gateway)
                     .toUtf8());
}

void PhoneNetwork::down(const QString &name)
{
    peers.remove(name);
    unplug(name);
    journal.note(Kind::Network, name.toUtf8() + " down\n");
}

void PhoneNetwork::plugIn(const QString &name, const QString &address, const QString &gateway)
{
    programs::run(BENCH_PLUG, {name, address, gateway, phonePlace});
}

void PhoneNetwork::unplug(const QString &name)
{
    programs::run("ip", {"link", "del", name});
}

void PhoneNetwork::setPhoneReachable(bool reachable)
{
    for (auto peer = peers.cbegin(); peer != peers.cend(); ++peer) {
        if (peer.value().isEmpty())
            continue;
        phoneIp("addr flush dev " + peer.key());
        if (reachable)
            phoneIp(QString("addr add %1 broadcast + dev %2").arg(peer.value(), peer.key()));
    }
}

void PhoneNetwork::phoneIp(const QString &arguments) const
{
    programs::run("nsenter", QStringList({"--net=" + phonePlace, "ip"}) + arguments.split(' '));
}

PhoneNetwork::InPhone::InPhone(const PhoneNetwork &where) : network(where)
{
    enter(network.phoneSpace);
}

PhoneNetwork::InPhone::~InPhone()
{
    setns(network.unitSpace, CLONE_NEWNET);
}
