// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

class Journal;

// The unit's networks, made of the kernel's own interfaces, addresses and routes: each is a
// pair of virtual Ethernet ends, one in the unit's world, one in the phone's.
// All throw std::runtime_error with what the system said.
class PhoneNetwork
{
public:
    // Makes the phone's network namespace.
    explicit PhoneNetwork(Journal &notes);
    virtual ~PhoneNetwork();
    PhoneNetwork(const PhoneNetwork &) = delete;
    PhoneNetwork &operator=(const PhoneNetwork &) = delete;

    // The interface appears with the unit's address ("192.168.42.10/24"); the phone has the
    // gateway's, and the default route leads to it. Without a gateway there is no route.
    void up(const QString &name, const QString &address, const QString &gateway);
    // The interface disappears, as an unplugged one does.
    void down(const QString &name);
    bool isUp(const QString &name) const { return peers.contains(name); }
    // The phone vanishes without a word: its end has no address any more; or it is back.
    void setPhoneReachable(bool reachable);

    // While it lives, sockets are made in the phone's namespace; they stay there, and so do the
    // programs that are started.
    class InPhone
    {
    public:
        explicit InPhone(const PhoneNetwork &where);
        ~InPhone();
        InPhone(const InPhone &) = delete;
        InPhone &operator=(const InPhone &) = delete;

    private:
        const PhoneNetwork &network;
    };

protected:
    virtual void plugIn(const QString &name, const QString &address, const QString &gateway);
    virtual void unplug(const QString &name);
    void phoneIp(const QString &arguments) const; // in the phone's world

private:
    Journal &journal;
    int unitSpace = -1;
    int phoneSpace = -1;
    QString phonePlace;           // the phone's namespace as a path for other programs
    QMap<QString, QString> peers; // interface -> the phone's address and prefix
};
