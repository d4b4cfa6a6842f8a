// SPDX-License-Identifier: LicenseRef-KT6120

// How kt6120-web reads the unit's files and parses commands.

#include "commandwriter.h"
#include "history.h"
#include "metrics.h"
#include "paths.h"
#include "programlog.h"
#include "readings.h"
#include "testsupport.h"
#include "timestamp.h"

#include <algorithm>
#include <sys/stat.h>

using testsupport::writeFile;

// moc does not find a class that has raw strings in it.
// NOLINTBEGIN(modernize-raw-string-literal)
class tst_web : public QObject
{
    Q_OBJECT

private slots:
    void init() { testsupport::freshWorld(); }

    void levels()
    {
        const struct {
            QByteArray key, entry, shown;
        } rows[] = {
            {"Battery/Voltage", "5500", "5.500 V, warning"},
            {"Battery/Current", "1500", "1.500 A, warning"},
            {"Temperature/CM3", "-10", "-10.0 °C, warning"},
            {"Temperature/Internal", "inf", "inf, fault"},
            {"Temperature/Boost", "2450", "24.5 °C, normal"},
            {"Temperature/Boost", "-9999", "no reading, fault"},
            {"Camera/Lamp", "-1", "off, normal"},
            {"Sonde/Enabled", "1", "on, normal"},
            {"Tallwick/Detected", "1", "attached, normal"},
            {"Sonde/Frequency", "\"x\\\";y\\\\\"", "x\";y\\, normal"},
            {"MCU/Version", "V\\x416", "V\u0416, normal"},
            {"MCU/Version", "a, \"@@b\"", "a,@b, normal"},
            {"Camera/Lamp", "never written", "0 %, normal"},
            {"Commands/Unknown", "no store", "no reading, fault"},
        };
        for (const auto &[key, entry, shown] : rows) {
            QByteArray store = '[' + QByteArray(key).replace("/", "]\n") + '=' + entry + '\n';
            if (entry == "never written")
                store = QByteArray("\0\0[%\n=\na=1\n", 11);
            else if (entry == "no store")
                store.clear();
            writeFile(paths::statusStore, store);
            const readings::Values values = readings::read();
            const auto reading = std::find_if(
                readings::all().begin(), readings::all().end(),
                [name = key](const auto &candidate) { return candidate.key.name == name; });
            QCOMPARE(readings::text(*reading, values) + ", " + readings::level(*reading, values),
                     shown);
        }
        for (const readings::Reading &one : readings::all()) { // stored in thousandths
            if (qstrcmp(one.unit, "V") == 0 || qstrcmp(one.unit, "A") == 0)
                QCOMPARE(readings::text(one, {{one.key.name, "1500"}}),
                         QByteArray("1.500 ") + one.unit);
        }
    }

    // As the app's CoilerValue? is answered.
    void distance()
    {
        const struct {
            QByteArray counter, offset, configuration, shown;
        } rows[] = {
            {"100", "0", "", "12.5"},
            {"-80", "2.5", "EncoderScalar=0.33333333", "-24.1667"},
            {"32767", "0.25", "EncoderScalar=12345", "4.04509e+08"},
            {"8", "x", "EncoderScalar = \"0.5\" \r", "4"},
            {"8", "1e2", "EncoderScalar=0,5", "100"},
            {"8", "0", "; here\nEncoderScalar=\"0.25\" ; measured", "2"},
            {"x", "7", "", "7"},
        };
        Freshness freshness; // before there is a store
        for (const auto &[counter, offset, configuration, shown] : rows) {
            writeFile(paths::configuration,
                      "\xef\xbb\xbf[ Coiler ] ; reel\n" + configuration + '\n');
            writeFile(paths::statusStore,
                      "[Camera]\nLamp=15\nCoiler=" + counter + "\nCoilerOffset=" + offset + '\n');
            QCOMPARE(readings::read().value(readings::distance.name), QString(shown));
            const QByteArray metric = "\nkt6120_reel_distance_meters "
                                      + QByteArray::number(shown.toDouble(), 'g', 12) + '\n';
            const QByteArray text = Metrics(freshness).text(false, readings::read());
            QVERIFY(text.contains(metric) && text.contains("\nkt6120_lamp_ratio 0.15\n"));
        }
        writeFile(paths::statusStore, "[Camera]\nCoilerOffset=7\n");
        QVERIFY(!readings::read().contains(readings::distance.name));
    }

    void rowsOfTheStatusFile()
    {
        const QByteArray header = "timestamp,battery voltage [mV],lamp value [%]\n";
        writeFile(QString(paths::statusCsv) + ".1",
                  header
                      + "02-03-2026 12:00:00,7000,0\n"
                        "30-10-2031 12:00:00,7100,0\n"); // the clock was wrong
        writeFile(paths::statusCsv, header
                                        + "08-03-2026 02:29:59,7300,0\n"
                                          "07-03-2026 03:30:00,7200,15\n" // it was set back
                                          "08-03-2026 02:30:00,74\n"      // incomplete
                                          "08-03-2026 02:30:00,,0\n"      // not in this zone's time
                                          "99-99-2026 12:00:00,1,2\n"
                                          "08-03-2026 03:30:00,error,-1\n"
                                          "08-03-2026 13");
        const QByteArray columns =
            "{\"columns\":[\"battery voltage [mV]\",\"lamp value [%]\"],\"rows\":[";
        const QByteArray day = "[1772936999,7300,0],[1772937000,null,0],[1772940600,null,-1]]}";
        QCOMPARE(history::read(1), columns + day);
        QCOMPARE(history::read(7), columns + "[1772452800,7000,0],[1772854200,7200,15]," + day);
        QFile::remove(paths::statusCsv); // just rotated
        QCOMPARE(history::read(1), columns + "[1951128000,7100,0]]}");
    }

    void logIsFollowedThroughRotation()
    {
        const auto texts = [](ProgramLog &log) {
            QByteArray all;
            const QList<ProgramLog::Line> lines = log.take();
            for (const ProgramLog::Line &line : lines)
                all += QByteArray::number(line.type) + line.text + '|';
            return all;
        };
        const auto append = [](const QByteArray &text) {
            QFile file(paths::programLog);
            QVERIFY(file.open(QIODevice::Append));
            file.write(text);
        };
        writeFile(paths::programLog,
                  "25-11-2026 01:00:00,4,long ago\n25-11-2026 01:00:00,1,a, b\n");
        ProgramLog log(35);
        QCOMPARE(texts(log), QByteArray("1a, b|"));
        append("25-11-2026 01:00:01,2,half");
        QCOMPARE(texts(log), QByteArray());
        append(" and half\ncontinued\n");
        QCOMPARE(texts(log), QByteArray("2half and half|0continued|"));
        append("25-11-2026 01:00:01,1,last\n");
        QVERIFY(QFile::rename(paths::programLog, QString(paths::programLog) + ".1"));
        append("25-11-2026 01:00:02,4,new file\n");
        QCOMPARE(texts(log), QByteArray("1last|4new file|"));
        writeFile(paths::programLog, "25-11-2026 01:00:02,4,cut\n");
        QCOMPARE(texts(log), QByteArray("4cut|"));
    }

    void pictureSondeAndStart()
    {
        const QByteArray start = "Starting  KT6120 - v 1 . 2 . 12",
                         stopped = "Stopping video stream";
        const QByteArray stream = "Starting video stream with IP  \"a\" and port  \"b\"";
        const std::pair<QByteArrayList, QByteArray> rows[] = {
            {{"Sonde Turned On"}, "unknown, on"},
            {{start, stream, "PAL Output Stopped"}, "phone, off"},
            {{"PAL Output Stopped", stream, stopped}, "nowhere, unknown"},
            {{stream, stopped, "PAL Output Started", "Sonde Turned Off"}, "PAL, off"},
            {{"Sonde Turned On", stream, start}, "PAL, off"},
        };
        for (const auto &[lines, state] : rows) {
            QByteArray rotated, content, started;
            for (const QByteArray &line : lines) {
                rotated += content;
                const auto time = "25-11-2026 01:00:0" + QByteArray::number(rotated.count('\n'));
                started = line == start ? time : started;
                content = time + ",4," + line + '\n';
            }
            writeFile(QString(paths::programLog) + ".1", rotated.left(rotated.size() - 1));
            writeFile(paths::programLog, content);
            ProgramLog log(1000);
            log.take();
            const char *sonde = !log.sonde() ? "unknown" : *log.sonde() ? "on" : "off";
            QCOMPARE(QByteArray(log.picture()) + ", " + sonde + log.started(), state + started);
        }
    }

    void pipesAreNoFiles()
    {
        for (const char *path : {paths::statusStore, paths::configuration, paths::programLog,
                                 paths::statusCsv, paths::commandsFile}) {
            QFile::remove(path);
            QCOMPARE(mkfifo(path, 0666), 0);
        }
        alarm(testsupport::patience / 1000); // ends a process that blocks
        QVERIFY(readings::read().isEmpty());
        QVERIFY(ProgramLog(1).take().isEmpty());
        QVERIFY(!history::read(1).contains("1"));
        Freshness freshness;
        QCOMPARE(commandwriter::carryOut({"LAMPUP", {}, {}}, freshness),
                 commandwriter::Outcome::Unwritable);
        alarm(0);
    }

    // The time of the store's file is an hour ahead: only its changes count.
    void metricsForPrometheus()
    {
        const auto writeStore = [](const QByteArray &voltage) {
            writeFile(paths::statusStore,
                      "[Battery]\nVoltage=" + voltage
                          + "\n[Camera]\nLamp=-1\n[MCU]\nVersion=\"a\\\"b\\nc\"\n"
                            "[Temperature]\nInternal=error\n");
            QFile store(paths::statusStore);
            QVERIFY(store.open(QIODevice::Append));
            QVERIFY(store.setFileTime(QDateTime::currentDateTime().addSecs(3600),
                                      QFileDevice::FileModificationTime));
        };
        const QByteArray low = "25-11-2026 01:00:00,1,Battery Voltage Under Threshold ( 4695 )\n";
        const QByteArray counter = "kt6120_log_messages_total{severity=\"warning\","
                                   "message=\"Battery Voltage Under Threshold (\"} ";
        writeFile(paths::programLog, low);
        writeStore("999");
        Freshness freshness;
        QCOMPARE(freshness.look().since,
                 timestamp::text(QFileInfo(paths::statusStore).lastModified()));
        Metrics metrics(freshness);
        const auto compare = [&](bool openMetrics, const QByteArrayList &there,
                                 const QByteArrayList &missing) {
            const QByteArray text = metrics.text(openMetrics, readings::read());
            for (const QByteArray &line : there)
                QVERIFY2(text.contains(line), line.constData());
            for (const QByteArray &part : missing)
                QVERIFY2(!text.contains(part), part.constData());
        };
        compare(false, {"kt6120_program_up 0\n", "\nkt6120_exporter_age_seconds ", counter + "0\n"},
                {"voltage"});
        writeStore("4695");
        compare(false,
                {"kt6120_program_up 1\n", "kt6120_battery_voltage_volts 4.695\n",
                 "kt6120_lamp_ratio 0\n", "kt6120_build_info{mcu_version=\"a\\\"b\\nc\"} 1",
                 "kt6120_reading_present{reading=\"Processor\"} 0\n",
                 "# TYPE kt6120_log_messages_total "},
                {"processor", "# EOF"});
        writeFile(paths::programLog, low + low + low);
        compare(true,
                {counter + "2\n",
                 "{severity=\"critical\",message=\"Error Creating MCU Log File\"} 0\n",
                 "# TYPE kt6120_log_messages counter\n", "# EOF\n"},
                {});
        TRY_VERIFY(freshness.look().age > 0.1);
    }
};
// NOLINTEND(modernize-raw-string-literal)

QTEST_GUILESS_MAIN(tst_web)
#include "tst_web.moc"
