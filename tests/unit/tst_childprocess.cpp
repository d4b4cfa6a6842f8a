#include "childprocess.h"

#include "testsupport.h"

#include <QElapsedTimer>
#include <QtTest>

using namespace std::chrono_literals;

class tst_childprocess : public QObject
{
    Q_OBJECT

private slots:
    void outputIsWhatTheWaitBrought_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("a line") << "echo 1" << QByteArray("1\n");
        QTest::newRow("nothing") << "true" << QByteArray();
        QTest::newRow("failure") << "echo part; exit 3" << QByteArray("part\n");
        QTest::newRow("standard error apart") << "echo wrong >&2" << QByteArray();
        QTest::newRow("a megabyte") << "head -c 1000000 /dev/zero" << QByteArray(1000000, '\0');
        QTest::newRow("slower than the wait")
            << "echo early; exec sleep 30" << QByteArray("early\n");
    }
    void outputIsWhatTheWaitBrought()
    {
        QFETCH(QString, script);
        QFETCH(QByteArray, expected);
        const bool slow = script.contains("sleep");
        QObject parent;
        QCOMPARE(childprocess::output(&parent, {"/bin/sh", {"-c", script}}, slow ? 300ms : 10s),
                 expected);
        // An ended child leaves nothing; a running one keeps its owner.
        QCOMPARE(parent.findChildren<QProcess *>().size(), slow ? 1 : 0);
    }

    // A reader that hangs must not pile up; it goes without a word and without being waited for.
    void aReaderThatOutlastsItsWaitIsKilled()
    {
        const testsupport::LogCapture log;
        QObject parent;
        childprocess::output(&parent, {"sleep", {"600"}}, 1ms);
        const auto *child = parent.findChild<QProcess *>();
        QVERIFY(child);
        const QString place = QString("/proc/%1").arg(child->processId());
        QTRY_COMPARE(parent.findChildren<QProcess *>().size(), 0);
        QVERIFY(!QFile::exists(place));
        QCOMPARE(log.texts(QtWarningMsg), QStringList());
    }

    // What the unit is told to do, it does to its end.
    void aRunThatOutlastsItsWaitGoesOn()
    {
        QObject parent;
        QVERIFY(!childprocess::run(&parent,
                                   {"/bin/sh",
                                    {"-c", "while [ ! -e /tmp/go ]; do sleep 0.01; done; "
                                           "head -c 1000000 /dev/zero; touch /tmp/done"}},
                                   1ms));
        testsupport::writeFile("/tmp/go", {});
        QTRY_VERIFY(QFile::exists("/tmp/done"));
        QTRY_VERIFY(!parent.findChild<QProcess *>()->isOpen()); // it stays, and holds little
    }

    void aMissingProgramIsNotWaitedFor()
    {
        QObject parent;
        QElapsedTimer waited;
        waited.start();
        QVERIFY(!childprocess::run(&parent, {"/nowhere/script.sh", {"1"}}, 30s));
        QCOMPARE(childprocess::output(&parent, {"/nowhere/script.sh", {}}, 30s), QByteArray());
        QVERIFY(waited.elapsed() < 20000);
    }

    void argumentsNeverReachAShell()
    {
        QObject parent;
        const QString text = "a b;touch /tmp/oops $(touch /tmp/oops) \"'";
        QCOMPARE(childprocess::output(&parent, {"/usr/bin/printf", {"%s", text}}, 10s),
                 text.toUtf8());
        QVERIFY(!QFile::exists("/tmp/oops"));
    }

    void execReadsToTheEnd()
    {
        QCOMPARE(childprocess::exec("printf '%0300d\\nrest' 7"), std::string(299, '0') + "7\nrest");
        QCOMPARE(childprocess::exec("exit 1"), std::string());
    }
};

QTEST_GUILESS_MAIN(tst_childprocess)
#include "tst_childprocess.moc"
