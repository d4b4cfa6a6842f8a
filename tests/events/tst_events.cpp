// SPDX-License-Identifier: LicenseRef-KT6120

// Dispatch, routing and queue, reports of the MCU, and requests.

#include "eventhandler.h"

#include "paths.h"
#include "testsupport.h"

#include <memory>
#include <optional>
#include <tuple>

using testsupport::LogCapture;

namespace
{

// An event handler in a fresh world whose scripts are recorded, and what it sends.
class UnitUnderEvents
{
public:
    explicit UnitUnderEvents(const QByteArray &configuration = {})
    {
        testsupport::freshWorld();
        testsupport::writeFile(paths::configuration, configuration);
        LogCapture::clear();
        handler = std::make_unique<eventHandler>();
        QObject::connect(handler.get(), &eventHandler::eventHandlerSendInternalCmd, handler.get(),
                         [this](const QString &text, SOURCE_TYPE_t destination) {
                             (destination == SOURCE_MCU ? serial : debug).append(text);
                         });
        QObject::connect(handler.get(), &eventHandler::eventHandlerSendExternalCmd, handler.get(),
                         [this](const QString &text) { app.append(text); });
    }

    void raise(EVENT_TYPE_t event, SOURCE_TYPE_t source = SOURCE_APP, void *payload = nullptr) const
    {
        handler->eventHandlerProcess(event, source, payload);
    }
    template <EVENT_TYPE_t event>
    void report(Payload<event> value, SOURCE_TYPE_t source = SOURCE_MCU) const
    {
        raise(event, source, &value);
    }

    std::unique_ptr<eventHandler> handler;
    QStringList serial, debug, app;
};

} // namespace

class tst_events : public QObject
{
    Q_OBJECT

    std::optional<LogCapture> log;

private slots:
    void initTestCase() { log.emplace(); }

    void answersGoBackWhereTheRequestCameFrom()
    {
        const UnitUnderEvents unit;
        unit.report<EVENT_LampValue>(20);
        for (const int source : {0, 1, 2, 3, 4})
            unit.raise(EVENT_LampValueRequest, static_cast<SOURCE_TYPE_t>(source));
        const QStringList once("LampValue 20\r\n");
        QCOMPARE(unit.serial, once);
        QCOMPARE(unit.debug, once);
        unit.report<EVENT_LampValue>(99, SOURCE_APP); // answered, not taken
        unit.report<EVENT_Thermistor>(-250);
        unit.raise(EVENT_ComputeTemperatureRequest);
        QCOMPARE(unit.app, once + once + QStringList("Temp:Compute -250\r"));
        unit.handler->eventHandlerSetIPAddress("10.0.0.9");
        unit.raise(EVENT_StreamStart);
        unit.raise(EVENT_StreamStop); // none is active
        QCOMPARE(LogCapture::texts(QtInfoMsg).mid(3),
                 QStringList({"EVENT_StreamStart", "Stream Started at  \"10.0.0.9\" : \"8001\""}));
        QDir::setCurrent("/tmp");
        unit.handler->eventHandlerParseSettingsFile();
        QCOMPARE(testsupport::readFile("KT6120.ini"),
                 QByteArray("[Battery]\nCurrent=0\nState=0\nVoltage=0\n\n[Camera]\nCoiler=0\n"
                            "Lamp=20\nType=0\n\n[Commands]\nUnknown=0\n\n[MCU]\nVersion=VX.Y.Z\n\n"
                            "[Sonde]\nState=0\n\n[Video]\nIP=10.0.0.9\nPort=8001\n"));
    }

    // Whatever the priority; before the MCU's first report, answers are 0.
    void theQueueIsFirstInFirstOut()
    {
        const UnitUnderEvents unit;
        for (const EVENT_TYPE_t request :
             {EVENT_SondeStateRequest, EVENT_TallwickDetectRequest, EVENT_BatteryLevelRequest})
            unit.handler->eventHandlerAddtoQueue(request, SOURCE_APP, nullptr, uint8_t(request));
        for (int i = 0; i < 4; ++i) // once more than there is
            unit.handler->eventHandlerProcessQueue();
        QCOMPARE(unit.app, QStringList({"SondeState 0\r\n", "TWK 0\r", "BatteryLevel 0\r"}));
    }

    // A warning on entering a state; none while it lasts or at a limit.
    void bands()
    {
        const QString high = "Battery Voltage Over Threshold ( 9390 )";
        const QString low = "Battery Voltage Under Threshold ( %1 )";
        const QString strong = "Battery Current Over Threshold ( 1501 )";
        const QString hot = "Compute Module Temperature Over Threshold ( 7001 )";
        const QString cold = "Compute Module Temperature Under Threshold ( -1001 )";
        const std::tuple<EVENT_TYPE_t, QList<int>, QStringList> rows[] = {
            {EVENT_BatteryVoltage,
             {3000, 3000, 1757, 1757, 1758, 3000, 21000}, // 16 bits of the last
             {high, low.arg(5499), high, low.arg(194)}},
            {EVENT_Current, {1500, 1501, 1500, 0, 1501, 1499, 1501}, {strong, strong}},
            {EVENT_Thermistor, {7001, 7000, 7001, 6999, 7001}, {hot, hot}},
            {EVENT_Thermistor, {-1000, -1001, -1000, -1001, -999, -1001}, {cold, cold}},
        };
        for (const auto &[event, readings, warnings] : rows) {
            const UnitUnderEvents unit;
            for (const int reading : readings) {
                auto value = static_cast<uint16_t>(reading); // each of these events has 16 bits
                unit.raise(event, SOURCE_MCU, &value);
            }
            QCOMPARE(LogCapture::texts(QtWarningMsg), warnings);
        }
    }

    // Up to the level that the configured current allows.
    void lampSteps()
    {
        const int up = EVENT_LampUp, down = EVENT_LampDown, off = EVENT_LampOff;
        const QString limit = "LED current limit set to  %1 mA";
        const QString invalid = "Invalid LED current limit detected, using default value  15 mA";
        const struct {
            QByteArray configured; // mA
            QString logged;
            int level; // to start from
            QList<int> events;
            QString levels; // after each event
            QString scaled; // of each LAMP:SET
            QString power;  // values written to line 21
        } rows[] = {
            // clang-format off
            {"15", limit.arg(15), 0, {up, up, up, up, up}, "15 30 45 50 50", "14 27 41 45", "0 0 0 0 0"},
            {"15", limit.arg(15), 50, {down, down, down, down, down}, "35 20 5 0 0", "32 18 5 0", "0 0 0 0 1"},
            {"15", limit.arg(15), 31, {off, up}, "-1 46", "41", "1 0"},
            {"15", limit.arg(15), 100, {up, down}, "50 35", "45 32", "0 0"},
            {"15", limit.arg(15), 250, {up}, "9", "8", "0"}, // an 8-bit step wraps
            {"30", limit.arg(30), 75, {up, up, up}, "90 100 100", "81 90", "0 0 0"},
            {"2", limit.arg(2), 0, {up, up, down}, "7 7 0", "6 0", "0 0 0 1"},
            {"1", limit.arg(1), 0, {up}, "3", "3", "0"},
            {"31", invalid, 45, {up}, "50", "45", "0"},
            {"0", invalid, 45, {up}, "50", "45", "0"},
            {"4294967326", invalid, 45, {up}, "50", "45", "0"},
            // clang-format on
        };
        for (const auto &row : rows) {
            UnitUnderEvents unit("[Lamp]\nMaxCurrent=" + row.configured + '\n');
            QCOMPARE(LogCapture::texts(QtInfoMsg) + LogCapture::texts(QtWarningMsg),
                     QStringList(row.logged));
            unit.report<EVENT_LampValue>(static_cast<uint8_t>(row.level));
            QStringList stored, expected, written;
            for (const int event : row.events) {
                unit.raise(static_cast<EVENT_TYPE_t>(event));
                stored.append(testsupport::iniValue(paths::statusStore, "Camera/Lamp"));
            }
            QCOMPARE(stored.join(' '), row.levels);
            for (const QString &scaled : row.scaled.split(' '))
                expected += {"LAMP:SET " + scaled + "\r\n", "LAMP:ON\r\n"};
            unit.serial.removeAll("LAMP:OFF\r\n");
            QCOMPARE(unit.serial, expected);
            for (const QString &call : recorders::calls())
                written.append(call.mid(int(strlen("KT6120_gpio_write.sh 21 "))));
            QCOMPARE(written.join(' '), row.power);
        }
    }

    void editsOfOtherProgramsTakeEffectAtTheNextRequest()
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
        QFile::remove(paths::statusStore);
        ask();
        QCOMPARE(unit.app, QStringList({"Model x40\r\n", "CoilerValue 0\r", "Model x7\r\n",
                                        "CoilerValue 7\r", "Model x12.5\r\n", "CoilerValue 12.5\r",
                                        "Model own\r\n", "CoilerValue 0\r"}));
        QCOMPARE(testsupport::iniValue(paths::configuration, "Coiler/Other"), QString("kept"));
    }
};

QTEST_GUILESS_MAIN(tst_events)
#include "tst_events.moc"
