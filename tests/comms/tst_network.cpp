#include "network.h"

#include "testsupport.h"

#include <QtTest>

class tst_network : public QObject
{
    Q_OBJECT

private slots:
    void broadcastAddress_data()
    {
        const QByteArray usb = "        inet 192.168.42.10  netmask 255.255.255.0  broadcast ";
        QTest::addColumn<QByteArray>("listing");
        QTest::addColumn<QString>("address");
        QTest::addColumn<bool>("warned");
        QTest::newRow("one") << usb + "192.168.42.255\n"
                             << "192.168.42.255" << false;
        QTest::newRow("two") << usb + "192.168.42.255\n" + usb + "10.0.0.255\n"
                             << "" << false;
        QTest::newRow("none") << QByteArray() << "" << false;
        QTest::newRow("five words") << QByteArray("inet A netmask M broadcast\n") << "" << false;
        QTest::newRow("IPv6") << usb + "fe80::1\n"
                              << "" << true;
        QTest::newRow("not an address") << usb + "$(reboot)\n"
                                        << "" << true;
        QTest::newRow("not UTF-8") << usb + "\xff\xfe\n"
                                   << "" << true;
        QTest::newRow("NUL before the rest")
            << usb + "10.0.0.255\n" + '\0' + usb << "10.0.0.255" << false;
    }
    void broadcastAddress()
    {
        QFETCH(QByteArray, listing);
        QFETCH(bool, warned);
        const testsupport::LogCapture log;
        QTEST(network::broadcastAddress(listing), "address");
        QCOMPARE(log.texts(QtWarningMsg),
                 warned ? QStringList("Invalid Broadcast Address Found") : QStringList());
    }

    void defaultGateway_data()
    {
        QTest::addColumn<QByteArray>("lines");
        QTest::addColumn<QString>("gateway");
        const auto line = [](const QByteArray &destination, const QByteArray &gateway,
                             const QByteArray &mask) {
            return "usb0\t" + destination + '\t' + gateway + "\t0003\t0\t0\t100\t" + mask
                   + "\t0\t0\t0 \n";
        };
        const QByteArray local = line("002AA8C0", "00000000", "00FFFFFF");
        const QByteArray phone = line("00000000", "012AA8C0", "00000000");
        const QByteArray router = line("00000000", "0102A8C0", "00000000");
        QTest::newRow("header and local network only") << local << "";
        QTest::newRow("after others") << local + phone << "192.168.42.1";
        QTest::newRow("first of two") << router + phone << "192.168.2.1";
        QTest::newRow("not for a full mask") << line("00000000", "012AA8C0", "FFFFFFFF") << "";
        QTest::newRow("highest bytes")
            << line("00000000", "FFFEFDFC", "00000000") << "252.253.254.255";
        QTest::newRow("bad digits") << line("00000000", "0xZZA8C0", "00000000") << "192.168.0.0";
        QTest::newRow("too short") << line("00000000", "01", "00000000") << "0.0.0.1";
        QTest::newRow("cut line") << QByteArray("usb0\t00000000\t012AA8C0\n") + phone
                                  << "192.168.42.1";
        QTest::newRow("empty table") << QByteArray() << "";
    }
    void defaultGateway()
    {
        QFETCH(QByteArray, lines);
        const QByteArray header =
            "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";
        QTEST(network::defaultGateway(header + lines), "gateway");
    }
};

QTEST_GUILESS_MAIN(tst_network)
#include "tst_network.moc"
