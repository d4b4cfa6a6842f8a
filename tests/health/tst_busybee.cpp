#include "busybee.h"

#include "recorders.h"
#include "settings.h"
#include "testsupport.h"

#include <QFile>
#include <QProcess>
#include <QtTest>

#include <climits>
#include <utility>

using testsupport::iniValue;

namespace
{

constexpr char ini[] = "/home/pi/KT6120/bin/KT6120.ini";
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

    void conversion_data()
    {
        QTest::addColumn<int>("converted");
        QTest::addColumn<int>("expected");
        settings store(nullptr);
        const BusyBee board(nullptr, &store);
        const std::pair<int, int> temperatures[] = {
            {128, 2500},  {200, 39},  {130, 2434}, {236, -2000}, {241, -2500}, {250, -3400},
            {255, -3900}, {9, 11000}, {8, 11250},  {7, 11500},   {6, -9999},   {0, -9999},
        };
        for (const auto &[raw, expected] : temperatures)
            QTest::addRow("temperature %d", raw) << board.convertTemperature(raw, 0) << expected;
        QTest::newRow("no temperature at all") << board.convertTemperature(-1, 0) << INT_MIN;
        QTest::newRow("zero voltage") << BusyBee::convertVoltage(0, 8.27) << 0;
        QTest::newRow("truncated twice") << BusyBee::convertVoltage(1, 8.27) << 99;
        QTest::newRow("full scale") << BusyBee::convertVoltage(255, 12.82) << 42306;
        QTest::newRow("no voltage at all") << BusyBee::convertVoltage(INT_MAX, 9.0) << INT_MAX;
        QTest::newRow("LED current") << BusyBee::convertCurrentLEDs(1294) << 26;
        QTest::newRow("LED current, below") << BusyBee::convertCurrentLEDs(24) << 0;
        QTest::newRow("LED current, half") << BusyBee::convertCurrentLEDs(25) << 1;
        QTest::newRow("interstage current") << BusyBee::convertCurrentIntersage(1294) << 129;
        QTest::newRow("interstage, below") << BusyBee::convertCurrentIntersage(24) << 2;
        QTest::newRow("interstage, half") << BusyBee::convertCurrentIntersage(25) << 3;
    }
    void conversion()
    {
        QFETCH(int, converted);
        QTEST(converted, "expected");
    }

    void reading_data()
    {
        QTest::addColumn<QByteArray>("printed");
        QTest::addColumn<double>("delay");
        QTest::addColumn<unsigned int>("reading");
        QTest::newRow("prefix") << QByteArray("0x64\n") << 0.0 << 100u;
        QTest::newRow("no prefix") << QByteArray("64") << 0.0 << 100u;
        QTest::newRow("white space") << QByteArray(" \t0xFF \r\n\n") << 0.0 << 255u;
        QTest::newRow("up to a NUL byte") << QByteArray("64\0zz", 5) << 0.0 << 100u;
        QTest::newRow("nothing") << QByteArray("") << 0.0 << 0u;
        QTest::newRow("no number") << QByteArray("0x6g\n") << 0.0 << 0u;
        QTest::newRow("negative") << QByteArray("-1\n") << 0.0 << 0u;
        QTest::newRow("too long") << QByteArray("0x1ffffffff\n") << 0.0 << 0u;
        QTest::newRow("too slow") << QByteArray("0x64\n") << 2.0 << 0u;
        QTest::newRow("missing") << QByteArray() << 0.0 << 0u;
    }
    void reading()
    {
        QFETCH(QByteArray, printed);
        QFETCH(double, delay);
        recorders::setReply("KT6120_bb_read.sh 0x12", printed, delay, 1);
        if (printed.isNull())
            QVERIFY(QFile::remove(script));
        settings store(nullptr);
        BusyBee board(nullptr, &store);
        const testsupport::LogCapture log;
        QTEST(board.read_i2c(18), "reading");
        QCOMPARE(board.findChildren<QProcess *>().size(), delay > 0 ? 1 : 0);
        QTRY_COMPARE(board.findChildren<QProcess *>().size(), 0);
        QCOMPARE(testsupport::LogCapture::texts(QtWarningMsg), QStringList());
    }

    // One cycle: the channels in order, each under its own key; one that fails is 0.
    void cycle()
    {
        struct Row {
            const char *channel, *printed, *key, *stored;
        };
        const Row rows[] = {
            {"0x12", "0x80\n", "Temperature/Boost", "2500"},
            {"0x15", "failed\n", "Temperature/LED", "-9999"},
            {"0x11", "0x64\n", "Voltage/Inter", "16589"},
            {"0x1", "0x65\n", "Voltage/Encoder", "10808"},
            {"0x13", "0x66\n", "Voltage/Camera", "10916"},
            {"0x14", "0x0\n", "Voltage/Sonde", "0"},
            {"0x7", "0x64\n", "Current/LedOut", "26"},
            {"0x10", "0x64\n", "Current/Inter", "129"},
            {"0x16", "0xff\n", "Current/LedTallwick", "66"},
        };
        for (const Row &row : rows)
            recorders::setReply(QString("KT6120_bb_read.sh ") + row.channel, row.printed);
        settings store(nullptr);
        BusyBee board(nullptr, &store);
        QVERIFY(recorders::calls().isEmpty());
        QVERIFY(QMetaObject::invokeMethod(&board, "processADC"));
        constexpr int count = std::size(rows);
        QCOMPARE(recorders::calls().size(), count);
        for (int i = 0; i < count; ++i) {
            QCOMPARE(recorders::calls().at(i).arguments, QStringList(rows[i].channel));
            QCOMPARE(iniValue(ini, rows[i].key), QString(rows[i].stored));
        }
    }
};

QTEST_GUILESS_MAIN(tst_busybee)
#include "tst_busybee.moc"
