// What is asked of the unit: lamp, sonde, reel, requests, commands file, configuration.

#include "unitunderevents.h"

#include <QDir>
#include <QtTest>

#include <functional>
#include <optional>

using testsupport::LogCapture;

using Preparation = std::function<void(const UnitUnderEvents &)>;
Q_DECLARE_METATYPE(Preparation)

class tst_control : public QObject
{
    Q_OBJECT

private:
    std::optional<LogCapture> log;

private slots:
    void initTestCase() { log.emplace(); }

    void lampSteps_data()
    {
        QTest::addColumn<int>("maxCurrent"); // mA
        QTest::addColumn<int>("level");      // to start from
        QTest::addColumn<QList<int>>("events");
        QTest::addColumn<QString>("levels"); // after each event
        QTest::addColumn<QString>("scaled"); // of each LAMP:SET
        QTest::addColumn<QString>("power");  // values written to line 21

        const int up = EVENT_LampUp;
        const int down = EVENT_LampDown;
        const int off = EVENT_LampOff;
        // clang-format off
        QTest::newRow("up to the maximum") << 15 << 0 << QList<int>{up, up, up, up, up} << "15 30 45 50 50" << "14 27 41 45" << "0 0 0 0 0";
        QTest::newRow("down to nothing") << 15 << 50 << QList<int>{down, down, down, down, down} << "35 20 5 0 0" << "32 18 5 0" << "0 0 0 0 1";
        QTest::newRow("full current") << 30 << 75 << QList<int>{up, up, up} << "90 100 100" << "81 90" << "0 0 0";
        QTest::newRow("least current") << 1 << 0 << QList<int>{up, up, down} << "3 3 0" << "3 0" << "0 0 0 1";
        QTest::newRow("off keeps the level") << 15 << 30 << QList<int>{off, up} << "-1 45" << "41" << "1 0";
        QTest::newRow("reported level above the maximum") << 15 << 100 << QList<int>{up, down} << "50 35" << "45 32" << "0 0";
        QTest::newRow("an 8-bit step wraps to nothing") << 15 << 120 << QList<int>{up} << "0" << "0" << "0 1";
        // clang-format on
    }
    void lampSteps()
    {
        QFETCH(int, maxCurrent);
        QFETCH(int, level);
        QFETCH(QList<int>, events);
        QFETCH(QString, levels);
        QFETCH(QString, scaled);
        QFETCH(QString, power);

        UnitUnderEvents unit("[Lamp]\nMaxCurrent=" + QByteArray::number(maxCurrent) + "\n");
        unit.report(EVENT_LampValue, static_cast<uint8_t>(level));
        unit.forget();
        QStringList stored;
        for (const int event : events) {
            unit.raise(static_cast<EVENT_TYPE_t>(event));
            stored.append(unit.stored("Camera/Lamp"));
        }
        QCOMPARE(stored.join(' '), levels);

        QStringList sets;
        for (int i = 0; i < unit.serial.size(); ++i) {
            if (unit.serial[i] == "LAMP:OFF\r\n")
                continue;
            QVERIFY(unit.serial[i].startsWith("LAMP:SET ") && unit.serial[i].endsWith("\r\n"));
            sets.append(unit.serial[i].mid(9).chopped(2));
            QCOMPARE(unit.serial.value(++i), QString("LAMP:ON\r\n"));
        }
        QCOMPARE(sets.join(' '), scaled);
        QCOMPARE(LogCapture::texts(QtInfoMsg).size(), sets.size());

        QStringList written;
        for (const QString &call : testsupport::calls()) {
            QVERIFY(call.startsWith("KT6120_gpio_write.sh 21 "));
            written.append(call.section(' ', 2));
        }
        QCOMPARE(written.join(' '), power);
    }

    void theLastStepDownIsLoggedWithItsScaledLevel()
    {
        const UnitUnderEvents unit;
        unit.report<uint8_t>(EVENT_LampValue, 5);
        unit.raise(EVENT_LampDown);
        QCOMPARE(LogCapture::texts(QtInfoMsg).last(),
                 QString("Setting Lamp Brightness to  0 % (Scaled  0 %)"));
        QCOMPARE(testsupport::calls(),
                 QStringList({"KT6120_gpio_write.sh 21 0", "KT6120_gpio_write.sh 21 1"}));
    }

    void aLampValueFromElsewhereIsAnsweredNotTaken()
    {
        const UnitUnderEvents unit;
        unit.report<uint8_t>(EVENT_LampValue, 20);
        unit.report<uint8_t>(EVENT_LampValue, 99, SOURCE_APP);
        QCOMPARE(unit.app, QStringList("LampValue 20\r\n"));
        QCOMPARE(unit.stored("Camera/Lamp"), QString("20"));
    }

    void sonde()
    {
        UnitUnderEvents unit;
        for (const SOURCE_TYPE_t source : {SOURCE_APP, SOURCE_MCU, SOURCE_FIFO}) {
            unit.forget();
            unit.raise(EVENT_SondeOn, source);
            QCOMPARE(unit.stored("Sonde/Enabled"), QString("1"));
            unit.raise(EVENT_SondeStateRequest);
            unit.raise(EVENT_SondeOff, source);
            QCOMPARE(unit.stored("Sonde/Enabled"), QString("0"));
            QCOMPARE(unit.serial, QStringList({"SONDE:ON\r\n", "SONDE:OFF\r\n"}));
            QCOMPARE(unit.app, QStringList("SondeState 1\r\n"));
            QCOMPARE(testsupport::calls(), QStringList({"KT6120_sonde_en_write.sh 43 1",
                                                        "KT6120_sonde_en_write.sh 43 0"}));
            QCOMPARE(LogCapture::texts(QtInfoMsg),
                     QStringList({"Sonde Turned On", "Sonde Turned Off"}));
        }
    }

    void requests_data()
    {
        QTest::addColumn<Preparation>("before");
        QTest::addColumn<int>("request");
        QTest::addColumn<QString>("answer");
        const auto row = [](const char *name, EVENT_TYPE_t request, const char *answer,
                            const Preparation &before) {
            QTest::newRow(name) << before << int(request) << answer;
        };
        const auto nothing = [](const UnitUnderEvents &) {};
        // clang-format off
        row("battery state", EVENT_BatteryStateRequest, "BatteryState 7\r", [](const auto &u) { u.template report<int32_t>(EVENT_BatteryState, 7); });
        row("battery level", EVENT_BatteryLevelRequest, "BatteryLevel 6260\r", [](const auto &u) { u.template report<uint16_t>(EVENT_BatteryVoltage, 2000); });
        row("frequency, never given", EVENT_SondeFrequencyRequest, "SondeFreq 512", nothing);
        row("frequency", EVENT_SondeFrequencyRequest, "SondeFreq 33k", [](const auto &u) { u.template report<QString>(EVENT_SondeFrequency, "33k"); });
        row("temperature", EVENT_ComputeTemperatureRequest, "Temp:Compute -250\r", [](const auto &u) { u.template report<int16_t>(EVENT_Thermistor, -250); });
        row("identification", EVENT_IdnRequest, "KT6120 v1.2.12\r\n", nothing);
        row("model, never given", EVENT_CoilerModelRequest, "Model x40\r\n", nothing);
        row("model", EVENT_CoilerModelRequest, "Model x60, long\r\n", [](const auto &u) { u.template report<QString>(EVENT_CoilerModel, "x60, long"); });
        row("distance", EVENT_CoilerValueRequest, "CoilerValue 12.5\r", [](const auto &u) { u.template report<uint16_t>(EVENT_CoilerValue, 100); });
        row("distance, six digits", EVENT_CoilerValueRequest, "CoilerValue 1234.69\r", [](const auto &u) { u.template report<uint16_t>(EVENT_CoilerValue, 9875);
                u.template report<double>(EVENT_CoilerSet, 0.3125); });
        row("distance behind zero", EVENT_CoilerValueRequest, "CoilerValue -0.125\r", [](const auto &u) { u.template report<uint16_t>(EVENT_CoilerValue, 65535); });
        row("offset", EVENT_CoilerValueRequest, "CoilerValue 2.5\r", [](const auto &u) { u.template report<double>(EVENT_CoilerSet, 2.5); });
        // clang-format on
    }
    void requests()
    {
        QFETCH(Preparation, before);
        QFETCH(int, request);
        QFETCH(QString, answer);
        const UnitUnderEvents unit;
        before(unit);
        unit.raise(static_cast<EVENT_TYPE_t>(request));
        QCOMPARE(unit.app, QStringList(answer));
    }

    void zeroingTheReel()
    {
        UnitUnderEvents unit;
        unit.report<double>(EVENT_CoilerSet, 2.5, SOURCE_APP);
        QCOMPARE(unit.stored("Camera/Coiler"), QString("0"));
        QCOMPARE(unit.stored("Camera/CoilerOffset").toDouble(), 2.5);
        unit.raise(EVENT_CoilerSet);
        QCOMPARE(unit.stored("Camera/CoilerOffset").toDouble(), 0.0);
        QCOMPARE(unit.serial, QStringList({"COILER:ZERO\r\n", "COILER:ZERO\r\n"}));
        QCOMPARE(LogCapture::texts(QtInfoMsg).mid(1),
                 QStringList({"Coiler offset set to  2.5 m", "Coiler offset set to  0 m"}));
    }

    void configurationLimits_data()
    {
        QTest::addColumn<QByteArray>("limit");
        QTest::addColumn<QString>("info");
        QTest::addColumn<int>("steps"); // LAMP:SETs on the way to the maximum
        const QString invalid;          // null: the warning
        // clang-format off
        QTest::newRow("1 mA") << QByteArray("1") << "LED current limit set to  1 mA" << 1;
        QTest::newRow("29 mA") << QByteArray("29") << "LED current limit set to  29 mA" << 7;
        QTest::newRow("30 mA") << QByteArray("30") << "LED current limit set to  30 mA" << 7;
        QTest::newRow("31 mA") << QByteArray("31") << invalid << 4;
        QTest::newRow("0 mA") << QByteArray("0") << invalid << 4;
        QTest::newRow("negative") << QByteArray("-5") << invalid << 4;
        QTest::newRow("text") << QByteArray("much") << invalid << 4;
        // clang-format on
    }
    void configurationLimits()
    {
        QFETCH(QByteArray, limit);
        QFETCH(QString, info);
        QFETCH(int, steps);
        const UnitUnderEvents unit("[Lamp]\nMaxCurrent=" + limit + "\n");
        if (info.isNull()) {
            QCOMPARE(LogCapture::texts(QtWarningMsg),
                     QStringList("Invalid LED current limit detected, using default value  15 mA"));
            QCOMPARE(LogCapture::texts(QtInfoMsg), QStringList());
        } else {
            QCOMPARE(LogCapture::texts(QtInfoMsg), QStringList(info));
        }
        for (int i = 0; i < 8; ++i)
            unit.raise(EVENT_LampUp);
        QCOMPARE(unit.serial.size(), 2 * steps);
    }

    void theScalarIsConfigured()
    {
        for (const auto &[scalar, answer] :
             {std::pair("0.5", "CoilerValue 6\r"), std::pair("wide", "CoilerValue 1\r")}) {
            const UnitUnderEvents unit(QByteArray("[Coiler]\nEncoderScalar=") + scalar + "\n");
            unit.report<double>(EVENT_CoilerSet, 1);
            unit.report<uint16_t>(EVENT_CoilerValue, 10);
            unit.raise(EVENT_CoilerValueRequest);
            QCOMPARE(unit.app, QStringList(answer));
        }
    }

    void theModelIsKeptInTheConfigurationFile()
    {
        UnitUnderEvents unit("[Lamp]\nMaxCurrent=20\n");
        unit.report<QString>(EVENT_CoilerModel, "x60");
        unit.handler.reset();
        QCOMPARE(testsupport::iniValue("/home/pi/KT6120/bin/kestraConfig.ini", "Coiler/Model"),
                 QString("x60"));
        QCOMPARE(testsupport::iniValue(paths::configuration, "Lamp/MaxCurrent"), QString("20"));
    }

    void commandsFileLines_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QStringList>("serial");
        QTest::addColumn<QString>("model");
        const QStringList nothing;
        const QStringList lampUp = {"LAMP:SET 14\r\n", "LAMP:ON\r\n"};
        const QString model = "x40";
        QTest::newRow("sonde on") << "SONDE 1" << QStringList("SONDE:ON\r\n") << model;
        QTest::newRow("sonde off") << "SONDE 0" << QStringList("SONDE:OFF\r\n") << model;
        QTest::newRow("sonde, two blanks") << "SONDE  1" << QStringList("SONDE:OFF\r\n") << model;
        QTest::newRow("sonde alone") << "SONDE" << nothing << model;
        QTest::newRow("lamp up") << "LAMPUP" << lampUp << model;
        QTest::newRow("lamp up, words after") << "LAMPUP 1 2" << lampUp << model;
        QTest::newRow("lamp down at nothing") << "LAMPDOWN" << nothing << model;
        QTest::newRow("lamp off") << "LAMPOFF" << QStringList("LAMP:OFF\r\n") << model;
        QTest::newRow("reel") << "RESET" << QStringList("COILER:ZERO\r\n") << model;
        QTest::newRow("MCU log") << "LOGRST" << QStringList("LOGS:RESET\r\n") << model;
        QTest::newRow("model") << "MODEL x60 y" << nothing << "x60";
        QTest::newRow("model alone") << "MODEL" << nothing << model;
        QTest::newRow("shell text is text") << "MODEL $(reboot);\"'" << nothing << "$(reboot);\"'";
        QTest::newRow("lower case") << "lampup" << nothing << model;
        QTest::newRow("leading blank") << " LAMPUP" << nothing << model;
        QTest::newRow("empty") << "" << nothing << model;
    }
    void commandsFileLines()
    {
        QFETCH(QString, line);
        QFETCH(QStringList, serial);
        QFETCH(QString, model);
        const UnitUnderEvents unit;
        const QSignalSpy logsAsked(unit.handler.get(), &eventHandler::eventHandlerUpdateLogs);
        unit.handler->eventHandlerParseFIFO(line);
        QCOMPARE(unit.serial, serial);
        QCOMPARE(logsAsked.size(), line == "LOGRST" ? 1 : 0);
        QCOMPARE(LogCapture::texts(QtInfoMsg).contains("Resetting Microcontroller Logs"),
                 line == "LOGRST");
        unit.raise(EVENT_CoilerModelRequest);
        QCOMPARE(unit.app, QStringList("Model " + model + "\r\n"));
    }

    // In place, so that each write is one notification.
    static void writeInPlace(const QByteArray &content)
    {
        QFile file(paths::commandsFile);
        QVERIFY(file.open(QIODevice::ReadWrite));
        file.write(content);
    }

    void everyChangeOfTheCommandsFileIsCarriedOut()
    {
        const UnitUnderEvents unit;
        writeInPlace("LAMPUP\r\nLAMPOFF\n");
        QTRY_COMPARE(unit.serial.size(), 2);
        writeInPlace("LAMPUP\r\nLAMPOFF\n");
        QTRY_COMPARE(unit.serial.value(2), QString("LAMP:SET 27\r\n"));
        // Binary and huge: the first line only, and bounded.
        writeInPlace(QByteArray("RESET \0\xff", 8) + QByteArray(5'000'000, 'x'));
        QTRY_COMPARE(unit.serial.last(), QString("COILER:ZERO\r\n"));

        // Replaced by another file: this change is the last one seen.
        testsupport::writeFile("/var/www/html/new", "SONDE 1\n");
        QCOMPARE(rename("/var/www/html/new", paths::commandsFile), 0);
        QTRY_COMPARE(unit.serial.last(), QString("SONDE:ON\r\n"));
        unit.handler->eventHandlerFIFOChanged("/var/www/html/other.txt");
        QCOMPARE(unit.serial.size(), 6);
    }

    void videoSwitchAndStreamReports()
    {
        const UnitUnderEvents unit;
        const QSignalSpy start(unit.handler.get(), &eventHandler::eventHandlerStartPAL);
        const QSignalSpy stop(unit.handler.get(), &eventHandler::eventHandlerStopPAL);
        const QSignalSpy stopStream(unit.handler.get(), &eventHandler::eventHandlerStopStreaming);
        const QSignalSpy missing(unit.handler.get(), &eventHandler::eventHandlerNullParams);
        LogCapture::clear();
        unit.raise(EVENT_PALStop);
        QCOMPARE(stop.size(), 1);
        unit.raise(EVENT_PALStart);
        QCOMPARE(start.size(), 1);
        unit.raise(EVENT_StreamStop); // none is active
        QCOMPARE(stopStream.size(), 0);
        unit.raise(EVENT_StreamStart);
        QCOMPARE(missing.size(), 0);
        unit.handler->eventHandlerSetPort("");
        unit.raise(EVENT_StreamStart);
        QCOMPARE(missing.size(), 1);
        QCOMPARE(
            LogCapture::texts(QtInfoMsg),
            QStringList({"PAL Output Stopped", "PAL Output Started", "EVENT_StreamStart",
                         "Stream Started at  \"192.167.0.0\" : \"8001\"", "EVENT_StreamStart"}));
    }

    void theMcuLogIsWritten()
    {
        const UnitUnderEvents unit;
        unit.report<QString>(EVENT_WriteLogs, "log text");
        QCOMPARE(testsupport::readFile("/home/pi/KT6120/bin/mcu_log.log"), QByteArray("log text"));
    }

    void theSnapshotHoldsTheHeldState()
    {
        const UnitUnderEvents unit;
        unit.report<uint16_t>(EVENT_BatteryVoltage, 2000);
        unit.report<uint16_t>(EVENT_CoilerValue, 65535);
        unit.handler->eventHandlerSetPort("49152");
        unit.raise(EVENT_SondeOn);
        const QString before = QDir::currentPath();
        QVERIFY(QDir::setCurrent("/tmp"));
        unit.handler->eventHandlerParseSettingsFile();
        QVERIFY(QDir::setCurrent(before));
        QCOMPARE(testsupport::readFile("/tmp/KT6120.ini"),
                 QByteArray("[Battery]\nCurrent=0\nState=0\nVoltage=6260\n\n"
                            "[Camera]\nCoiler=-1\nLamp=0\nType=0\n\n[Commands]\nUnknown=0\n\n"
                            "[MCU]\nVersion=VX.Y.Z\n\n[Sonde]\nState=1\n\n"
                            "[Video]\nIP=192.167.0.0\nPort=49152\n"));
    }
};

QTEST_GUILESS_MAIN(tst_control)
#include "tst_control.moc"
