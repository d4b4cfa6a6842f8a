// SPDX-License-Identifier: LicenseRef-KT6120
#include "childprocess.h"

#include "testsupport.h"

#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

using namespace std::chrono_literals;

namespace
{

constexpr std::chrono::milliseconds patience(testsupport::patience);

bool everybodySignalled = false; // or the program's own group, or the first process
bool ending = true; // false: signals have no effect, as on a process in uninterruptible sleep

} // namespace

// Replaces the C library's, for Qt too.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name) the C library's are reserved
extern "C" int kill(pid_t process, int number) noexcept
{
    const bool few = process > 1 || process < -1;
    everybodySignalled |= !few;
    return few && (ending || number == 0) ? int(syscall(SYS_kill, process, number)) : 0;
}

class tst_childprocess : public QObject
{
    Q_OBJECT

private slots:
    // A reader that exceeds its timeout is killed with all that it has started. That is not logged
    // and its end is not waited for.
    void outputIsWhatTheWaitBrought()
    {
        const testsupport::LogCapture log;
        const auto processes = [] { return QDir("/proc").entryList({"[1-9]*"}).size(); };
        const int before = processes();
        const std::pair<QString, QByteArray> rows[] = {
            {"echo part; exit 3", "part\n"},
            {"exec cat /dev/zero", QByteArray(65536, '\0')}, // as much as a pipe holds
            {"echo early; sleep 600 | exec cat", "early\n"},
            {"sleep 600 & echo 1", "1\n"},
        };
        for (const auto &[script, expected] : rows) {
            // A busy machine may need a longer timeout.
            const bool slow = script.contains("exec");
            QObject parent;
            const childprocess::Command command{"/bin/sh", {"-c", script}};
            std::chrono::milliseconds wait = slow ? 300ms : patience;
            QByteArray printed;
            while ((printed = childprocess::output(&parent, command, wait)) != expected
                   && wait < patience)
                wait *= 2;
            QCOMPARE(printed, expected);
            // The object of a running child stays until the child has ended.
            QCOMPARE(parent.findChildren<QProcess *>().size(), slow ? 1 : 0);
            TRY_COMPARE(parent.findChildren<QProcess *>().size(), 0);
        }
        TRY_COMPARE(processes(), before);
        QCOMPARE(log.texts(QtWarningMsg), QStringList());
    }

    // A reader that cannot be killed costs two descriptors and is not started again as long as
    // any process of its group runs; a zombie does not count.
    void aReaderThatNothingEndsStaysTheOnlyOne()
    {
        const childprocess::Command stuck{"/bin/sh",
                                          {"-c", "[ ! -e /tmp/stuck ] || exec echo again\n"
                                                 "sleep 600 & echo $! >/tmp/stuck; wait"}};
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        QObject parent;
        const int descriptors = testsupport::openDescriptors();
        ending = false;
        const auto restore = qScopeGuard([] { ending = true; });
        for (int i = 0; i < 5; ++i)
            QCOMPARE(childprocess::output(&parent, stuck, 1ms), QByteArray());
        const QList<QProcess *> left = parent.findChildren<QProcess *>();
        QCOMPARE(left.size(), 1);
        TRY_VERIFY(testsupport::readFile("/tmp/stuck").endsWith('\n'));
        TRY_VERIFY(testsupport::openDescriptors() <= descriptors + 2);
        QCOMPARE(childprocess::output(&parent, {"echo", {"1"}}, patience), QByteArray("1\n"));
        ending = true;
        left.first()->kill();
        TRY_COMPARE(parent.findChildren<QProcess *>().size(), 0);
        QCOMPARE(testsupport::openDescriptors(), descriptors);
        QCOMPARE(childprocess::output(&parent, stuck, patience), QByteArray());
        QCOMPARE(kill(testsupport::readFile("/tmp/stuck").toInt(), SIGKILL), 0);
        TRY_COMPARE(childprocess::output(&parent, stuck, patience), QByteArray("again\n"));
    }

    // Whichever descriptor is one too many: the start fails, and no other process is signalled.
    void aStartWithoutDescriptorsFails()
    {
        const testsupport::LogCapture log;
        QObject parent;
        const childprocess::Command echo{"echo", {"1"}};
        childprocess::output(&parent, echo, patience); // opens what Qt opens once for all
        childprocess::run(&parent, echo, patience); // a sanitizer checks a new class through a pipe
        const int descriptors = testsupport::openDescriptors();
        rlimit before{};
        getrlimit(RLIMIT_NOFILE, &before);
        const auto restore = qScopeGuard([&] { setrlimit(RLIMIT_NOFILE, &before); });
        QByteArray printed;
        for (rlim_t limit = 3; printed.isEmpty() && !everybodySignalled; ++limit) {
            const rlimit few{limit, before.rlim_max};
            setrlimit(RLIMIT_NOFILE, &few);
            QProcess *process = childprocess::start(&parent, echo);
            QVERIFY(process->state() == QProcess::NotRunning || process->processId() > 0);
            process->waitForFinished();
            delete process;
            printed = childprocess::output(&parent, echo, patience);
        }
        QVERIFY(!everybodySignalled);
        QCOMPARE(printed, QByteArray("1\n"));
        QCOMPARE(testsupport::openDescriptors(), descriptors);
    }

    // A reader's message is printed once, however often it is repeated; a script's each time.
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

    void aRunThatExceedsItsTimeoutGoesOn()
    {
        QObject parent;
        const QString script = "while [ ! -e /tmp/go ]; do sleep 0.01; done; "
                               "head -c 1000000 /dev/zero; touch /tmp/done; sleep 0.1";
        QVERIFY(!childprocess::run(&parent, {"/bin/sh", {"-c", script}}, 1ms));
        testsupport::writeFile("/tmp/go", {});
        TRY_VERIFY(QFile::exists("/tmp/done"));
        QCOMPARE(parent.findChild<QProcess *>()->bytesAvailable(), 0);
        TRY_VERIFY(!parent.findChild<QProcess *>()->isOpen()); // it stays, and holds little
    }

    // However long its lines are, and though another child ends meanwhile.
    void execReadsToTheEnd()
    {
        QObject parent;
        const QString other = "until [ -e /tmp/begun ]; do sleep 0.01; done";
        const qint64 id = childprocess::start(&parent, {"sh", {"-c", other}})->processId();
        const QString wait = "touch /tmp/begun; while kill -0 %1; do sleep 0.01; done 2>/dev/null";
        const QString command = "printf %300d 1; " + wait.arg(id) + "; echo 2";
        QCOMPARE(childprocess::exec(command.toLatin1()), std::string(299, ' ') + "12\n");
    }

    void childrenInheritNoDescriptor()
    {
        QObject parent;
        const int opened = fcntl(STDERR_FILENO, F_DUPFD, 100);
        const QString look =
            QString("[ ! -e /proc/self/fd/%1 ] || touch /tmp/inherited").arg(opened);
        const childprocess::Command command{"/bin/sh", {"-c", look}};
        QVERIFY(childprocess::run(&parent, command, patience));
        childprocess::output(&parent, command, patience);
        childprocess::exec(look.toLatin1());
        QVERIFY(!QFile::exists("/tmp/inherited"));
        close(opened);
    }
};

QTEST_GUILESS_MAIN(tst_childprocess)
#include "tst_childprocess.moc"
