// SPDX-License-Identifier: LicenseRef-KT6120
#include "network.h"

#include "testsupport.h"

#include <QtTest>

class tst_network : public QObject
{
    Q_OBJECT

private slots:
    void broadcastAddress()
    {
        const QByteArray usb = "        inet 192.168.42.10  netmask 255.255.255.0  broadcast ";
        const std::tuple<QByteArray, QString, bool> rows[] = {
            {usb + "192.168.42.255\n", "192.168.42.255", false},
            {usb + "192.168.42.255\n" + usb + "10.0.0.255\n", "", false},
            {"", "", false},
            {"inet A netmask M broadcast\n", "", false}, // five words
            {usb + "fe80::1\n", "", true},
            {usb + "$(reboot)\n", "", true},
            {usb + "\xff\xfe\n", "", true},
            {usb + "10.0.0.255\n" + '\0' + usb, "10.0.0.255", false},
        };
        for (const auto &[listing, address, warned] : rows) {
            const testsupport::LogCapture log;
            QCOMPARE(network::broadcastAddress(listing), address);
            QCOMPARE(log.texts(QtWarningMsg),
                     warned ? QStringList("Invalid Broadcast Address Found") : QStringList());
        }
    }

    void defaultGateway()
    {
        const auto line = [](const QByteArray &destination, const QByteArray &gateway,
                             const QByteArray &mask) {
            return "usb0\t" + destination + '\t' + gateway + "\t0003\t0\t0\t100\t" + mask
                   + "\t0\t0\t0 \n";
        };
        const QByteArray header =
            "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";
        const QByteArray local = line("002AA8C0", "00000000", "00FFFFFF");
        const QByteArray phone = line("00000000", "012AA8C0", "00000000");
        const QByteArray router = line("00000000", "0102A8C0", "00000000");
        const std::pair<QByteArray, QString> rows[] = {
            {"", ""},
            {local, ""},
            {local + phone, "192.168.42.1"},
            {router + phone, "192.168.2.1"},
            {line("00000000", "012AA8C0", "FFFFFFFF"), ""},
            {line("00000000", "FFFEFDFC", "00000000"), "252.253.254.255"},
            {line("00000000", "0xZZA8C0", "00000000"), "192.168.0.0"},
            {line("00000000", "01", "00000000"), "0.0.0.1"},
            {"usb0\t00000000\t012AA8C0\n" + phone, "192.168.42.1"}, // a line cut off
        };
        for (const auto &[lines, gateway] : rows)
            QCOMPARE(network::defaultGateway(header + lines), gateway);
    }
};

QTEST_GUILESS_MAIN(tst_network)
#include "tst_network.moc"
