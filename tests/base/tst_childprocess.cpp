// SPDX-License-Identifier: LicenseRef-KT6120
#include "childprocess.h"

#include "testsupport.h"

#include <QElapsedTimer>
#include <QtTest>

#include <csignal>
#include <sys/resource.h>
#include <sys/syscall.h>

using namespace std::chrono_literals;

namespace
{

constexpr std::chrono::milliseconds patience(testsupport::patience);

QList<pid_t> signalled;
bool ending = true; // false: no signal has an effect, as where a device does not answer

} // namespace

// Stands before the system's own for the libraries too.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name) the C library's are reserved
extern "C" int kill(pid_t process, int number) noexcept
{
    signalled.append(process);
    return process > 0 && ending ? int(syscall(SYS_kill, process, number)) : 0;
}

class tst_childprocess : public QObject
{
    Q_OBJECT

private slots:
    // A reader that outlasts its wait is killed: it goes without a word and without being waited
    // for.
    void outputIsWhatTheWaitBrought()
    {
        const testsupport::LogCapture log;
        const std::pair<QString, QByteArray> rows[] = {
            {"echo 1", "1\n"},
            {"true", ""},
            {"echo part; exit 3", "part\n"},
            {"echo wrong >&2", ""},
            {"head -c 65536 /dev/zero", QByteArray(65536, '\0')}, // as much as a pipe holds
            {"exec cat /dev/zero", QByteArray(65536, '\0')},      // a flood, ended
            {"echo early; exec sleep 600", "early\n"},
        };
        for (const auto &[script, expected] : rows) {
            // One that is slow brings what it can in a wait that is long enough.
            const bool slow = script.contains("exec");
            QObject parent;
            const childprocess::Command command{"/bin/sh", {"-c", script}};
            std::chrono::milliseconds wait = slow ? 300ms : patience;
            QByteArray printed;
            while ((printed = childprocess::output(&parent, command, wait)) != expected
                   && wait < patience)
                wait *= 2;
            QCOMPARE(printed, expected);
            // An ended child leaves nothing; a running one keeps its owner.
            QCOMPARE(parent.findChildren<QProcess *>().size(), slow ? 1 : 0);
            TRY_COMPARE(parent.findChildren<QProcess *>().size(), 0);
        }
        QCOMPARE(log.texts(QtWarningMsg), QStringList());
    }

    // One that no signal ends costs two descriptors, and has no second beside it.
    void aReaderThatNothingEndsStaysTheOnlyOne()
    {
        const childprocess::Command stuck{"sleep", {"600"}};
        QObject parent;
        const int descriptors = testsupport::openDescriptors();
        ending = false;
        for (int i = 0; i < 5; ++i)
            QCOMPARE(childprocess::output(&parent, stuck, 1ms), QByteArray());
        ending = true;
        const QList<QProcess *> left = parent.findChildren<QProcess *>();
        QCOMPARE(left.size(), 1);
        TRY_VERIFY(testsupport::openDescriptors() <= descriptors + 2);
        QCOMPARE(childprocess::output(&parent, {"echo", {"1"}}, patience), QByteArray("1\n"));
        left.first()->kill();
        TRY_COMPARE(parent.findChildren<QProcess *>().size(), 0);
        QCOMPARE(testsupport::openDescriptors(), descriptors);
    }

    // Whichever descriptor is the one too many: the start fails, and nobody is signalled for it.
    void aStartWithoutDescriptorsFails()
    {
        const testsupport::LogCapture log;
        QObject parent;
        const childprocess::Command echo{"echo", {"1"}};
        childprocess::output(&parent, echo, patience); // opens what Qt opens once for all
        const int descriptors = testsupport::openDescriptors();
        signalled.clear();
        rlimit before{};
        getrlimit(RLIMIT_NOFILE, &before);
        const auto restore = qScopeGuard([&] { setrlimit(RLIMIT_NOFILE, &before); });
        QByteArray printed;
        for (rlim_t limit = 3; printed.isEmpty(); ++limit) {
            const rlimit few{limit, before.rlim_max};
            setrlimit(RLIMIT_NOFILE, &few);
            QProcess *process = childprocess::start(&parent, echo);
            QVERIFY(process->state() == QProcess::NotRunning || process->processId() > 0);
            process->waitForFinished();
            delete process;
            printed = childprocess::output(&parent, echo, patience);
        }
        setrlimit(RLIMIT_NOFILE, &before);
        QCOMPARE(printed, QByteArray("1\n"));
        QCOMPARE(signalled, QList<pid_t>());
        QCOMPARE(testsupport::openDescriptors(), descriptors);
    }

    // A reader says the same for months; one that does hardware's work is heard each time.
    void aReadersComplaintIsHeardOnce()
    {
        const childprocess::Command reader{"/bin/sh", {"-c", "cat /tmp/complaint >&2"}};
        QObject parent;
        const testsupport::OutputCapture heard(STDERR_FILENO);
        for (const char *complaint : {"lost\n", "lost\n", "", "lost\n", "found\n"}) {
            testsupport::writeFile("/tmp/complaint", complaint);
            childprocess::output(&parent, reader, patience);
        }
        const QByteArray fold =
            "/bin/sh -c cat /tmp/complaint >&2: the last message came 2 times more\n";
        QCOMPARE(heard.text(), "lost\n" + fold + "found\n");
        for (int i = 0; i < 2; ++i)
            childprocess::run(&parent, reader, patience);
        QCOMPARE(heard.text(), "lost\n" + fold + "found\nfound\nfound\n");
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
        TRY_VERIFY(QFile::exists("/tmp/done"));
        TRY_VERIFY(!parent.findChild<QProcess *>()->isOpen()); // it stays, and holds little
    }

    void aMissingProgramIsNotWaitedFor()
    {
        QObject parent;
        QElapsedTimer waited;
        waited.start();
        QVERIFY(!childprocess::run(&parent, {"/nowhere/script.sh", {"1"}}, patience));
        QCOMPARE(childprocess::output(&parent, {"/nowhere/script.sh", {}}, patience), QByteArray());
        QVERIFY(waited.elapsed() < patience.count());
    }

    void argumentsNeverReachAShell()
    {
        QObject parent;
        const QString text = "a b;touch /tmp/oops $(touch /tmp/oops) \"'";
        QCOMPARE(childprocess::output(&parent, {"/usr/bin/printf", {"%s", text}}, patience),
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
