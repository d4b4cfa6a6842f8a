// SPDX-License-Identifier: LicenseRef-KT6120

// What the two benches of a board tell each other, over a serial line with other things on it.
#include "board/message.h"
#include "pty.h"

#include <QTest>

class TestMessage : public QObject
{
    Q_OBJECT

private slots:
    void arrivesAsItWasSent_data()
    {
        QTest::addColumn<QByteArray>("word");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("without text") << QByteArray("hello") << QByteArray();
        QTest::newRow("any bytes")
            << QByteArray("note") << QByteArray("7 a%b\r\n\0\xff@bench x ", 18);
    }

    void arrivesAsItWasSent()
    {
        QFETCH(QByteArray, word);
        QFETCH(QByteArray, text);
        auto console = std::make_unique<Pty>("/tmp/console");
        SerialLine &far = *console;
        MessageLine world(std::move(console));
        MessageLine unit(SerialLine::onTerminal("/tmp/console"));
        QList<Message> arrived;
        QByteArray babble;
        connect(&world, &MessageLine::arrived,
                [&](const Message &message) { arrived.append(message); });
        connect(&world, &MessageLine::babbled, [&](const QByteArray &line) { babble += line; });
        connect(&unit, &MessageLine::arrived, [&] { unit.send(word, text); });
        far.send("booting\n");
        world.send("ask");
        QTRY_COMPARE_WITH_TIMEOUT(arrived.size(), 1, 60'000);
        QCOMPARE(arrived[0].word, word);
        QCOMPARE(arrived[0].text, text);
        QCOMPARE(babble, QByteArray());
    }
};

QTEST_GUILESS_MAIN(TestMessage)
#include "tst_message.moc"
