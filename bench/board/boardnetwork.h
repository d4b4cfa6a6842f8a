// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "../phonenetwork.h"

#include <QProcess>

#include <map>
#include <memory>

class Board;

// Networks of a board: USB adapters that are plugged in while it runs. The unit gets its address
// from the phone, by DHCP.
class BoardNetwork : public PhoneNetwork
{
public:
    BoardNetwork(Journal &notes, Board &which);
    ~BoardNetwork() override;

protected:
    void plugIn(const QString &name, const QString &address, const QString &gateway) override;
    void unplug(const QString &name) override;

private:
    Board &board;
    std::map<QString, std::unique_ptr<QProcess>> servers; // interface -> who gives addresses
};
