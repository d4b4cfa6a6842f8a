#include "settings.h"

#include "paths.h"
#include "testsupport.h"

#include <QDir>
#include <QtTest>

using testsupport::iniValue;
using testsupport::readFile;

class tst_settings : public QObject
{
    Q_OBJECT

private slots:
    void init() { testsupport::freshWorld(); }

    void startWritesTheVersion()
    {
        const settings store(nullptr);
        QCOMPARE(readFile(paths::statusStore),
                 QByteArray("[Compute]\nSoftwareVersion=V" BENCH_VERSION "\n"));
    }

    // Each write is in the file when it returns and reads back as the same value.
    void writesAreOnDiskAtOnce_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("onDisk");
        QTest::newRow("text") << QVariant("x40") << "x40";
        QTest::newRow("text with a comma") << QVariant("V1.0,3") << "V1.0,3";
        QTest::newRow("empty text") << QVariant(QString("")) << "";
        QTest::newRow("lamp off") << QVariant(-1) << "-1";
        QTest::newRow("largest 16-bit") << QVariant::fromValue<unsigned short>(65535) << "65535";
        QTest::newRow("hundredths") << QVariant(70.12) << "70.12";
        QTest::newRow("whole double") << QVariant(2.0) << "2";
    }
    void writesAreOnDiskAtOnce()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, onDisk);
        settings store(nullptr);
        switch (int(value.type())) {
        case QMetaType::Int:
            store.settingsSetValue("Group/Entry", value.toInt());
            break;
        case QMetaType::UShort:
            store.settingsSetValue("Group/Entry", value.value<unsigned short>());
            break;
        case QMetaType::Double:
            store.settingsSetValue("Group/Entry", value.toDouble());
            break;
        default:
            store.settingsSetValue("Group/Entry", value.toString());
        }
        QCOMPARE(iniValue(paths::statusStore, "Group/Entry"), onDisk);
        QVERIFY(!iniValue(paths::statusStore, "Group/Entry").isNull());
        QCOMPARE(settings(nullptr).settingsGetValue("Group/Entry", "absent").toString(), onDisk);
    }

    void missingKeysReadAsTheirDefault()
    {
        settings store(nullptr);
        QCOMPARE(store.settingsGetValue("Sonde/Frequency", "512").toString(), QString("512"));
        QCOMPARE(store.settingsGetValue("Camera/CoilerOffset", "0").toDouble(), 0.0);
        QCOMPARE(store.settingsGetValue("Tallwick/Detected", "false").toInt(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_settings)
#include "tst_settings.moc"
