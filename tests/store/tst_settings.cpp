// SPDX-License-Identifier: LicenseRef-KT6120
#include "settings.h"

#include "paths.h"
#include "testsupport.h"

#include <sys/resource.h>

using testsupport::iniValue;

class tst_settings : public QObject
{
    Q_OBJECT

private slots:
    void init() { testsupport::freshWorld(); }

    // Each write is in the file when it returns and reads back as the same value.
    void writesAreOnDiskAtOnce()
    {
        settings store(nullptr);
        const auto check = [&store](auto value, const QString &onDisk) {
            constexpr Key<decltype(value)> key{{"Group/Entry", "absent"}};
            store.settingsSetValue(key, value);
            QCOMPARE(iniValue(paths::statusStore, "Group/Entry"), onDisk);
            QVERIFY(!iniValue(paths::statusStore, "Group/Entry").isNull());
            QCOMPARE(settings(nullptr).settingsGetValue(key).toString(), onDisk);
        };
        check(QString("x40"), "x40");
        check(QString("V1.0,3"), "V1.0,3");
        check(QString(""), "");
        check(-1, "-1");
        check(static_cast<unsigned short>(65535), "65535");
        check(70.12, "70.12");
        check(2.0, "2");
    }

    // A wait is twenty sleeps, each of them a voluntary context switch.
    void aHeldLockIsWaitedForOnce()
    {
        QLockFile lock(paths::statusStore + QString(".lock"));
        QVERIFY(lock.lock());
        settings store(nullptr);
        rusage before = {};
        rusage after = {};
        getrusage(RUSAGE_SELF, &before);
        for (int i = 0; i < 20; ++i) {
            store.settingsSetValue(keys::batteryState, i);
            QCOMPARE(store.settingsGetValue(keys::batteryState).toInt(), i);
        }
        getrusage(RUSAGE_SELF, &after);
        QVERIFY(after.ru_nvcsw - before.ru_nvcsw < 20);
    }
};

QTEST_GUILESS_MAIN(tst_settings)
#include "tst_settings.moc"
