// SPDX-License-Identifier: LicenseRef-KT6120
#include "busybee.h"
#include "monitor.h"

#include "paths.h"
#include "settings.h"
#include "testsupport.h"

#include <climits>
#include <memory>

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
        qputenv("PATH", "/nowhere"); // no log rotation
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
            check(0);
            const QByteArray content = readFile(paths::statusCsv);
            QVERIFY(content.startsWith(header));
            QCOMPARE(content.mid(header.size() + 19), ',' + fields + '\n');
        }
        writeFile(paths::statusCsv, ""); // it exists, so it gets no header
        check(0);
        QCOMPARE(readFile(paths::statusCsv).left(19).count('-'), 2);
    }

    void conversions()
    {
        const BusyBee board(nullptr, store.get());
        int sum = 0; // tells a wrong entry of the table
        for (int raw = 0; raw < 256; ++raw)
            sum += board.convertTemperature(raw, 0);
        QCOMPARE(sum, 577588);
        QCOMPARE(board.convertTemperature(-1, 0), INT_MIN); // far beyond eight bits
        QCOMPARE(BusyBee::convertVoltage(INT_MAX, 9.0), INT_MAX);
        QCOMPARE(BusyBee::convertCurrentLEDs(25), 1); // rounded half up
        QCOMPARE(BusyBee::convertCurrentIntersage(25), 3);
    }
};

QTEST_GUILESS_MAIN(tst_health)
#include "tst_health.moc"
