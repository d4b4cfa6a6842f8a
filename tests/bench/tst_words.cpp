#include "words.h"

#include <QtTest>

#include <stdexcept>

class tst_words : public QObject
{
    Q_OBJECT

private slots:
    void split_data();
    void split();
    void refused_data();
    void refused();
};

void tst_words::split_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QList<QByteArray>>("expected");

    using Words = QList<QByteArray>;
    QTest::newRow("blanks") << QByteArray("  mcu\tBAT:V   1500 \r\n")
                            << Words{"mcu", "BAT:V", "1500"};
    QTest::newRow("nothing") << QByteArray(" \t ") << Words{};
    QTest::newRow("quoted") << QByteArray(R"(web "SONDE  1" "")") << Words{"web", "SONDE  1", ""};
    QTest::newRow("escapes") << QByteArray(R"("a\r\n\t\\\"\x41\xff")")
                             << Words{QByteArray("a\r\n\t\\\"A\xff")};
    QTest::newRow("nul") << QByteArray(R"("a\0b")") << Words{QByteArray("a\0b", 3)};
    QTest::newRow("plain backslash and quote")
        << QByteArray(R"(prints temp=51.0'C\n)") << Words{"prints", R"(temp=51.0'C\n)"};
    QTest::newRow("quote inside a word") << QByteArray(R"(a"b c"d)") << Words{"ab cd"};
}

void tst_words::split()
{
    QFETCH(QByteArray, line);
    QFETCH(QList<QByteArray>, expected);
    QCOMPARE(words::split(line), expected);
    // What is shown can be typed in again.
    for (const QByteArray &word : expected) {
        const QByteArray typed = words::printable(word).replace('"', "\\\"");
        QCOMPARE(words::split('"' + typed + '"'), QList<QByteArray>{word});
    }
}

void tst_words::refused_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("open quote") << QByteArray(R"(app raw "Lamp)");
    QTest::newRow("escaped end") << QByteArray(R"("a\")");
    QTest::newRow("unknown escape") << QByteArray(R"("\q")");
    QTest::newRow("short hexadecimal") << QByteArray(R"("\x4")");
    QTest::newRow("not hexadecimal") << QByteArray(R"("\xzz")");
}

void tst_words::refused()
{
    QFETCH(QByteArray, line);
    QVERIFY_EXCEPTION_THROWN(words::split(line), std::runtime_error);
}

QTEST_APPLESS_MAIN(tst_words)
#include "tst_words.moc"
