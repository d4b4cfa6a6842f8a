// SPDX-License-Identifier: LicenseRef-KT6120

// What is asked of the unit: lamp, reel, answers, configuration, video switch, snapshot.

#include "unitunderevents.h"

#include <QtTest>

#include <optional>
#include <tuple>

using testsupport::LogCapture;

class tst_control : public QObject
{
    Q_OBJECT

private:
    std::optional<LogCapture> log;

private slots:
    void initTestCase() { log.emplace(); }

    void lampSteps()
    {
        const int up = EVENT_LampUp, down = EVENT_LampDown, off = EVENT_LampOff;
        const struct {
            int maxCurrent, level; // mA; to start from
            QList<int> events;
            QString levels; // after each event
            QString scaled; // of each LAMP:SET
            QString power;  // values written to line 21
        } rows[] = {
            // clang-format off
            {15, 0, {up, up, up, up, up}, "15 30 45 50 50", "14 27 41 45", "0 0 0 0 0"},
            {15, 50, {down, down, down, down, down}, "35 20 5 0 0", "32 18 5 0", "0 0 0 0 1"},
            {30, 75, {up, up, up}, "90 100 100", "81 90", "0 0 0"},
            {2, 0, {up, up, down}, "7 7 0", "6 0", "0 0 0 1"},
            {15, 30, {off, up}, "-1 45", "41", "1 0"},
            {15, 100, {up, down}, "50 35", "45 32", "0 0"},
            {15, 120, {up}, "0", "0", "0 1"}, // an 8-bit step wraps
            // clang-format on
        };
        for (const auto &row : rows) {
            UnitUnderEvents unit("[Lamp]\nMaxCurrent=" + QByteArray::number(row.maxCurrent) + "\n");
            unit.report<EVENT_LampValue>(static_cast<uint8_t>(row.level));
            unit.forget();
            QStringList stored, expected, written;
            for (const int event : row.events) {
                unit.raise(static_cast<EVENT_TYPE_t>(event));
                stored.append(unit.stored("Camera/Lamp"));
            }
            QCOMPARE(stored.join(' '), row.levels);
            for (const QString &scaled : row.scaled.split(' '))
                expected << "LAMP:SET " + scaled + "\r\n"
                         << "LAMP:ON\r\n";
            unit.serial.removeAll("LAMP:OFF\r\n");
            QCOMPARE(unit.serial, expected);
            for (const QString &call : recorders::calls())
                written.append(call.mid(int(strlen("KT6120_gpio_write.sh 21 "))));
            QCOMPARE(written.join(' '), row.power);
        }
    }

    void aLampValueFromElsewhereIsAnsweredNotTaken()
    {
        const UnitUnderEvents unit;
        unit.report<EVENT_LampValue>(20);
        unit.report<EVENT_LampValue>(99, SOURCE_APP);
        QCOMPARE(unit.app, QStringList("LampValue 20\r\n"));
    }

    // Negative ones, and six significant digits at most.
    void numbersInAnswers()
    {
        const UnitUnderEvents unit;
        unit.report<EVENT_Thermistor>(-250);
        unit.raise(EVENT_ComputeTemperatureRequest);
        unit.report<EVENT_CoilerValue>(-1);
        unit.raise(EVENT_CoilerValueRequest);
        unit.report<EVENT_CoilerSet>(0.3125);
        unit.report<EVENT_CoilerValue>(9875);
        unit.raise(EVENT_CoilerValueRequest);
        QCOMPARE(unit.app, QStringList({"Temp:Compute -250\r", "CoilerValue -0.125\r",
                                        "CoilerValue 1234.69\r"}));
    }

    void configurationLimits()
    {
        const std::tuple<const char *, QString, int> rows[] = {
            // what is told where it is not the warning; LAMP:SETs on the way to the maximum
            {"1", "LED current limit set to  1 mA", 1},
            {"30", "LED current limit set to  30 mA", 7},
            {"31", {}, 4},
            {"0", {}, 4},
            {"much", {}, 4},
        };
        const QString warning = "Invalid LED current limit detected, using default value  15 mA";
        for (const auto &[limit, info, steps] : rows) {
            const UnitUnderEvents unit(QByteArray("[Lamp]\nMaxCurrent=") + limit + '\n');
            QCOMPARE(LogCapture::texts(QtInfoMsg) + LogCapture::texts(QtWarningMsg),
                     QStringList(info.isNull() ? warning : info));
            for (int i = 0; i < 8; ++i)
                unit.raise(EVENT_LampUp);
            QCOMPARE(unit.serial.size(), 2 * steps);
        }
    }

    void theScalarIsConfigured()
    {
        for (const auto &[scalar, answer] :
             {std::pair("0.5", "CoilerValue 6\r"), std::pair("wide", "CoilerValue 1\r")}) {
            const UnitUnderEvents unit(QByteArray("[Coiler]\nEncoderScalar=") + scalar + "\n");
            unit.report<EVENT_CoilerSet>(1);
            unit.report<EVENT_CoilerValue>(10);
            unit.raise(EVENT_CoilerValueRequest);
            QCOMPARE(unit.app, QStringList(answer));
        }
    }

    void editsOfOtherProgramsAreSeenAtTheNextRequest()
    {
        const UnitUnderEvents unit;
        const auto ask = [&unit] {
            unit.raise(EVENT_CoilerModelRequest);
            unit.raise(EVENT_CoilerValueRequest);
        };
        ask();
        for (const char *text : {"7", "12.5"}) {
            testsupport::writeFile(paths::configuration, QByteArray("[Coiler]\nModel=x") + text);
            testsupport::writeFile(paths::statusStore,
                                   QByteArray("[Camera]\nCoilerOffset=") + text);
            ask();
        }
        unit.report<EVENT_CoilerModel>("own"); // not yet in the file
        testsupport::writeFile(paths::configuration, "[Coiler]\nModel=of another\nOther=kept\n");
        ask();
        QCOMPARE(unit.app, QStringList({"Model x40\r\n", "CoilerValue 0\r", "Model x7\r\n",
                                        "CoilerValue 7\r", "Model x12.5\r\n", "CoilerValue 12.5\r",
                                        "Model own\r\n", "CoilerValue 12.5\r"}));
        QCOMPARE(testsupport::iniValue(paths::configuration, "Coiler/Other"), QString("kept"));
    }

    void aStreamWithoutPortIsReported()
    {
        const UnitUnderEvents unit;
        const QSignalSpy missing(unit.handler.get(), &eventHandler::eventHandlerNullParams);
        LogCapture::clear();
        unit.raise(EVENT_StreamStart);
        QCOMPARE(missing.size(), 0);
        unit.handler->eventHandlerSetPort("");
        unit.raise(EVENT_StreamStart);
        QCOMPARE(missing.size(), 1);
        QCOMPARE(LogCapture::texts(QtInfoMsg),
                 QStringList({"EVENT_StreamStart", "Stream Started at  \"192.167.0.0\" : \"8001\"",
                              "EVENT_StreamStart"}));
    }
};

QTEST_GUILESS_MAIN(tst_control)
#include "tst_control.moc"
