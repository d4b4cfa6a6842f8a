// SPDX-License-Identifier: LicenseRef-KT6120
#include "busybee.h"

#include "settings.h"
#include "testsupport.h"

#include <QProcess>
#include <QtTest>

#include <climits>
#include <tuple>
#include <utility>

namespace
{

constexpr char script[] = "/home/pi/KT6120/bin/KT6120_bb_read.sh";

} // namespace

class tst_busybee : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        testsupport::freshWorld();
        recorders::install(script);
    }

    void conversions()
    {
        settings store(nullptr);
        const BusyBee board(nullptr, &store);
        const std::pair<int, int> temperatures[] = {
            {128, 2500},  {200, 39},  {130, 2434}, {236, -2000}, {241, -2500}, {250, -3400},
            {255, -3900}, {9, 11000}, {8, 11250},  {7, 11500},   {6, -9999},   {-1, INT_MIN},
        };
        for (const auto &[raw, expected] : temperatures)
            QCOMPARE(board.convertTemperature(raw, 0), expected);
        QCOMPARE(BusyBee::convertVoltage(1, 8.27), 99); // truncated twice
        QCOMPARE(BusyBee::convertVoltage(255, 12.82), 42306);
        QCOMPARE(BusyBee::convertVoltage(INT_MAX, 9.0), INT_MAX);
        const std::tuple<int, int, int> currents[] = {{1294, 26, 129}, {24, 0, 2}, {25, 1, 3}};
        for (const auto &[raw, leds, interstage] : currents) {
            QCOMPARE(BusyBee::convertCurrentLEDs(raw), leds);
            QCOMPARE(BusyBee::convertCurrentIntersage(raw), interstage);
        }
    }

    void readings()
    {
        const std::pair<QByteArray, unsigned> rows[] = {
            {"0x64\n", 100},
            {"64", 100},
            {" \t0xFF \r\n\n", 255},
            {QByteArray("64\0zz", 5), 100},
            {"", 0},
            {"0x6g\n", 0},
            {"-1\n", 0},
            {"0x1ffffffff\n", 0},
        };
        settings store(nullptr);
        BusyBee board(nullptr, &store);
        for (const auto &[printed, reading] : rows) {
            recorders::setReply("KT6120_bb_read.sh 0x12", printed, 0, 1);
            QCOMPARE(board.read_i2c(18), reading);
        }
        recorders::setReply("KT6120_bb_read.sh 0x12", "0x64\n", 2); // too slow
        QCOMPARE(board.read_i2c(18), 0u);
        TRY_COMPARE(board.findChildren<QProcess *>().size(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_busybee)
#include "tst_busybee.moc"
