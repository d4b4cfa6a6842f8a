// SPDX-License-Identifier: LicenseRef-KT6120
#include "words.h"

#include <QtTest>

#include <stdexcept>

class tst_words : public QObject
{
    Q_OBJECT

private slots:
    void split();
};

// Outside the class: moc reads no raw strings.
void tst_words::split()
{
    using Words = QList<QByteArray>;
    const std::pair<QByteArray, Words> rows[] = {
        {"  mcu\tBAT:V   1500 \r\n", {"mcu", "BAT:V", "1500"}},
        {" \t ", {}},
        {R"(web "SONDE  1" "")", {"web", "SONDE  1", ""}},
        {R"("a\r\n\t\\\"\x41\xff")", {"a\r\n\t\\\"A\xff"}},
        {R"("a\0b")", {QByteArray("a\0b", 3)}},
        {R"(prints temp=51.0'C\n)", {"prints", R"(temp=51.0'C\n)"}},
        {R"(a"b c"d)", {"ab cd"}},
    };
    for (const auto &[line, expected] : rows) {
        QCOMPARE(words::split(line), expected);
        // What is shown can be typed in again.
        for (const QByteArray &word : expected) {
            const QByteArray typed = words::printable(word).replace('"', "\\\"");
            QCOMPARE(words::split('"' + typed + '"'), Words{word});
        }
    }
    for (const char *line : {R"(app raw "Lamp)", R"("a\")", R"("\q")", R"("\x4")", R"("\xzz")"})
        QVERIFY_EXCEPTION_THROWN(words::split(line), std::runtime_error);
}

QTEST_APPLESS_MAIN(tst_words)
#include "tst_words.moc"
