// SPDX-License-Identifier: LicenseRef-KT6120
#include "busybee.h"
#include "monitor.h"

#include "paths.h"
#include "settings.h"
#include "testsupport.h"

#include <climits>
#include <memory>
#include <tuple>

using testsupport::readFile;
using testsupport::writeFile;

class tst_health : public QObject
{
    Q_OBJECT

    // Store and monitor anew, from the files.
    void restart()
    {
        health.reset();
        store = std::make_unique<settings>(nullptr);
        health = std::make_unique<monitor>(nullptr, store.get());
    }
    QTimer *timer(int index) const { return health->findChildren<QTimer *>().at(index); }
    void check(int index) const { QVERIFY(QMetaObject::invokeMethod(timer(index), "timeout")); }

    std::unique_ptr<settings> store;
    std::unique_ptr<monitor> health;

private slots:
    void initTestCase()
    {
        recorders::install("/tmp/tools/logrotate");
        qputenv("PATH", "/tmp/tools:" + qgetenv("PATH"));
    }
    void init()
    {
        testsupport::freshWorld();
        restart();
    }

    void row()
    {
        const std::pair<QByteArray, QByteArray> rows[] = {
            {"", "0,0,0,0,0,0,0,0,0,0,0,0"},
            {"[Battery]\nVoltage=11840\nCurrent=720\n"
             "[Temperature]\nInternal=48.3\nCM3=31.25\nBoost=2150\n[Camera]\nCoiler=-12\nLamp=-1\n"
             "[Current]\nLedOut=26\nInter=129\nLedTallwick=27\n"
             "[Sonde]\nEnabled=1\n[Tallwick]\nDetected=2\n",
             "11840,720,48.3,31.25,-12,26,129,27,1,-1,21.5,2"},
            {"[Battery]\nVoltage=12.5\nCurrent=007\n[Temperature]\nInternal=%1\nBoost=hot\n"
             "[Camera]\nCoiler=99999999999\n[Tallwick]\nDetected=true\n",
             "0,7,%1,0,0,0,0,0,0,0,0,0"},
            {"[Temperature]\nBoost=1234567890\n", "0,0,0,0,0,0,0,0,0,0,1.23457e+07,0"},
        };
        const QByteArray header =
            "timestamp,battery voltage [mV],battery current [mA],internal temperature [Deg C],"
            "cm3 temperature [Deg C],coiler value,led current [mA],interstage current [mA],"
            "tallwick led current [mA],sonde state,lamp value [%],encoder temperature [Deg C],"
            "tallwick status\n";
        for (const auto &[stored, fields] : rows) {
            writeFile(paths::statusStore, stored);
            QFile::remove(paths::statusCsv);
            restart();
            for (const auto &[index, interval] : {std::pair(0, 1800000), {1, 5000}, {2, 10000}})
                QCOMPARE(timer(index)->interval(), interval);
            const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
            check(0);
            const QByteArray content = readFile(paths::statusCsv);
            QVERIFY(content.startsWith(header));
            const QByteArray record = content.mid(header.size());
            QCOMPARE(record.mid(19), ',' + fields + '\n');
            const auto stamp = QDateTime::fromString(record.left(19), "dd-MM-yyyy HH:mm:ss");
            QVERIFY(stamp >= before && stamp <= QDateTime::currentDateTime());
        }
        check(0);
        QCOMPARE(readFile(paths::statusCsv).count("timestamp"), 1);
        QCOMPARE(readFile(paths::statusCsv).count('\n'), 3);
        writeFile(paths::statusCsv, ""); // it exists, so it gets no header
        check(0);
        QCOMPARE(readFile(paths::statusCsv).left(19).count('-'), 2);
    }

    void conversions()
    {
        const BusyBee board(nullptr, store.get());
        const std::pair<int, int> some[] = {{200, 39}, {255, -3900}, {6, -9999}, {-1, INT_MIN}};
        for (const auto &[raw, expected] : some)
            QCOMPARE(board.convertTemperature(raw, 0), expected);
        int sum = 0; // tells a wrong entry of the table
        for (int raw = 0; raw < 256; ++raw)
            sum += board.convertTemperature(raw, 0);
        QCOMPARE(sum, 577588);
        QCOMPARE(BusyBee::convertVoltage(1, 8.27), 99); // truncated twice
        QCOMPARE(BusyBee::convertVoltage(255, 12.82), 42306);
        QCOMPARE(BusyBee::convertVoltage(INT_MAX, 9.0), INT_MAX);
        const std::tuple<int, int, int> currents[] = {{1294, 26, 129}, {24, 0, 2}, {25, 1, 3}};
        for (const auto &[raw, leds, interstage] : currents) {
            QCOMPARE(BusyBee::convertCurrentLEDs(raw), leds);
            QCOMPARE(BusyBee::convertCurrentIntersage(raw), interstage);
        }
    }
};

QTEST_GUILESS_MAIN(tst_health)
#include "tst_health.moc"
