// SPDX-License-Identifier: LicenseRef-KT6120

// Dispatch, routing, queue and what the MCU reports.

#include "unitunderevents.h"

#include <QtTest>

#include <optional>

using testsupport::LogCapture;

class tst_eventHandler : public QObject
{
    Q_OBJECT

private:
    std::optional<LogCapture> log;

private slots:
    void initTestCase() { log.emplace(); }

    void valuesWithoutAHandlerDoNothing()
    {
        const UnitUnderEvents unit;
        const QByteArray before = testsupport::readFile(paths::statusStore);
        LogCapture::clear();
        for (const int value : {-1, 20, 22, 23, 31, 32, 40, 1000})
            unit.raise(static_cast<EVENT_TYPE_t>(value));
        QCOMPARE(unit.serial + unit.debug + unit.app, QStringList());
        QCOMPARE(testsupport::readFile(paths::statusStore), before);
        QCOMPARE(LogCapture::texts(QtInfoMsg), QStringList());
    }

    void answersGoBackWhereTheRequestCameFrom()
    {
        const UnitUnderEvents unit;
        for (const int source : {0, 1, 2, 3, 4})
            unit.raise(EVENT_LampValueRequest, static_cast<SOURCE_TYPE_t>(source));
        const QStringList once("LampValue 0\r\n");
        QCOMPARE(unit.serial, once);
        QCOMPARE(unit.debug, once);
        QCOMPARE(unit.app, once);
    }

    void theQueueIsFirstInFirstOut()
    {
        const UnitUnderEvents unit;
        unit.handler->eventHandlerAddtoQueue(EVENT_SondeStateRequest, SOURCE_APP, nullptr, 9);
        unit.handler->eventHandlerAddtoQueue(EVENT_BatteryStateRequest, SOURCE_APP, nullptr, 1);
        for (int i = 0; i < 3; ++i) // once more than there is
            unit.handler->eventHandlerProcessQueue();
        QCOMPARE(unit.app, QStringList({"SondeState 0\r\n", "BatteryState 0\r"}));
    }

    // A warning on entering a state; none while it lasts or at a limit.
    void bands()
    {
        const QString high = "Battery Voltage Over Threshold ( 9390 )";
        const QString low = "Battery Voltage Under Threshold ( %1 )";
        const QString strong = "Battery Current Over Threshold ( 1501 )";
        const QString hot = "Compute Module Temperature Over Threshold ( 7001 )";
        const QString cold = "Compute Module Temperature Under Threshold ( -1001 )";
        const struct {
            EVENT_TYPE_t event;
            QList<int> readings;
            QStringList warnings;
            const char *key;
            QString stored;
        } rows[] = {
            // clang-format off
            {EVENT_BatteryVoltage, {3000, 3000, 2000, 3000}, {high, high}, "Battery/Voltage", "9390"},
            {EVENT_BatteryVoltage, {1757, 1757, 1758}, {low.arg(5499)}, "Battery/Voltage", "5502"},
            {EVENT_BatteryVoltage, {3000, 1000, 3000}, {high, low.arg(3130), high}, "Battery/Voltage", "9390"},
            {EVENT_BatteryVoltage, {21000}, {low.arg(194)}, "Battery/Voltage", "194"}, // 16 bits of it
            {EVENT_Current, {1500, 1501, 1500, 0, 1501, 1499, 1501}, {strong, strong}, "Battery/Current", "1501"},
            {EVENT_Thermistor, {7001, 7000, 7001, 6999, 7001}, {hot, hot}, "Temperature/CM3", "70.01"},
            {EVENT_Thermistor, {-1000, -1001, -1000, -1001, -999, -1001}, {cold, cold}, "Temperature/CM3", "-10.01"},
            // clang-format on
        };
        for (const auto &row : rows) {
            const UnitUnderEvents unit;
            for (const int reading : row.readings) {
                auto value = static_cast<uint16_t>(reading); // each of these events has 16 bits
                unit.raise(row.event, SOURCE_MCU, &value);
            }
            QCOMPARE(LogCapture::texts(QtWarningMsg), row.warnings);
            QCOMPARE(unit.stored(row.key), row.stored);
        }
    }

    // The rest of the probe's story is told by a scenario.
    void aTallwickValueThatIsNoDetectionBlocksTheLamp()
    {
        const UnitUnderEvents unit;
        unit.report<EVENT_TallwickDetected>(2);
        unit.raise(EVENT_LampUp);
        QCOMPARE(unit.serial, QStringList());
        unit.raise(EVENT_LampOff);
        QCOMPARE(unit.serial, QStringList("LAMP:OFF\r\n"));
    }

    void theUnknownCommandCountSurvivesAndWraps()
    {
        UnitUnderEvents unit;
        unit.handler.reset();
        testsupport::writeFile(paths::statusStore, "[Commands]\nUnknown=65534\n");
        eventHandler handler;
        handler.eventHandlerProcess(EVENT_UnknownCommand, SOURCE_APP, nullptr);
        QCOMPARE(unit.stored("Commands/Unknown"), QString("65535"));
        handler.eventHandlerProcess(EVENT_UnknownCommand, SOURCE_APP, nullptr);
        QCOMPARE(unit.stored("Commands/Unknown"), QString("0"));
    }
};

QTEST_GUILESS_MAIN(tst_eventHandler)
#include "tst_eventhandler.moc"
