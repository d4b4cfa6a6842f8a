// The log sink. Wiring and fatal signals are played by scenarios.

#include "messagehandler.h"
#include "paths.h"
#include "testsupport.h"

#include <QDir>
#include <QRegularExpression>
#include <QtTest>

#include <functional>
#include <thread>

using testsupport::OutputCapture;
using testsupport::readFile;

namespace
{

const char programLog[] = "/home/pi/KT6120/bin/commands_log.log";

// Logs through the sink; QtTest's own handler is put back afterwards.
void log(const std::function<void()> &statements)
{
    const auto before = qInstallMessageHandler(MessageHandler);
    statements();
    qInstallMessageHandler(before);
}

} // namespace

class tst_app : public QObject
{
    Q_OBJECT

private slots:
    void init() { testsupport::freshWorld(); }

    void eachMessageIsALine()
    {
        const QString before = QDateTime::currentDateTime().toString("dd-MM-yyyy HH:mm:ss");
        const OutputCapture printed;
        log([] {
            qInfo() << "Sonde Turned On";
            qWarning() << "Setting Lamp Brightness to " << 15 << "% (Scaled " << 14 << "%)";
            qCritical() << "Failed to write command: " << QString("LAMP:ON\r\n");
            qDebug() << "chatter";
        });
        const QString after = QDateTime::currentDateTime().toString("dd-MM-yyyy HH:mm:ss");
        const QStringList lines = QString(readFile(programLog)).split('\n');
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines[0].mid(19), QString(",4,Sonde Turned On"));
        QVERIFY(lines[0].left(19) == before || lines[0].left(19) == after);
        QCOMPARE(lines[1].mid(19), QString(",1,Setting Lamp Brightness to  15 % (Scaled  14 %)"));
        QCOMPARE(lines[2].mid(19), QString(",2,Failed to write command:  \"LAMP:ON\\r\\n\""));
        QCOMPARE(printed.text(), QByteArray("chatter\n"));
    }

    void linesOfTwoThreadsNeverMix()
    {
        constexpr int count = 200;
        const QString text(300, 'x');
        log([&] {
            const auto write = [&text] {
                for (int i = 0; i < count; ++i)
                    qWarning().noquote() << text;
            };
            std::thread other(write);
            write();
            other.join();
        });
        const QStringList lines = QString(readFile(programLog)).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 2 * count);
        for (const QString &line : lines)
            QCOMPARE(line.mid(19), ",1," + text);
    }
};

QTEST_GUILESS_MAIN(tst_app)
#include "tst_app.moc"
