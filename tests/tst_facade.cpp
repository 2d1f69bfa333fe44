// The exported facade through its public header only: the singleton and its
// start-up banner, the batch type's names, entries and controller reports in
// the order they were posted, from one thread and from many, and flush(). The
// functions run in order on one singleton.
#include "testtree.h"

#include <userlog/userlog.h>

#include <QtTest/QtTest>

#include <thread>
#include <type_traits>
#include <vector>

namespace {

const QString separator = "//---------------------------------"_s;
const QString booted = "**T** <user log> <log> krn user log systerm booted up!"_s;
const QString offlineLog = "log/offline/user_print_file_off"_s;

// Holds the log thread inside the debug message of a refused entry. Static, not
// on a test's stack: a failing check returns while the log thread is still held.
QSemaphore logThreadHeld, releaseLogThread;
QString heldThreadName;
bool flushedWhileHeld = true;

void holdLogThread(QtMsgType, const QMessageLogContext&, const QString& message)
{
    if (message != "no log information to write!"_s)
        return;
    heldThreadName = QThread::currentThread()->objectName();
    flushedWhileHeld = UserLog::logger()->flush(-1); // would wait for itself forever
    logThreadHeld.release();
    releaseLogThread.acquire();
}

// The id registered under a type name; 0 (QMetaType::UnknownType) for none.
int typeId(const char* name)
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0) // Qt 6 deprecates QMetaType::type
    return QMetaType::type(name);
#else
    return QMetaType::fromName(name).id();
#endif
}

} // namespace

class TestFacade : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(_tree.isValid()); }
    void startUp()
    {
        static_assert(!std::is_default_constructible<UserLog>::value, "only logger() creates it");
        static_assert(!std::is_destructible<UserLog>::value, "the host cannot destroy it");
        QCOMPARE(typeId("QList<LogInformation>&"), int(QMetaType::UnknownType));
        UserLog* log = UserLog::logger();
        // Written on this thread before logger() returned, and once only.
        QCOMPARE(lines(offlineLog), (QStringList{separator, booted, separator}));
        QCOMPARE(UserLog::logger(), log);
        QVERIFY(log->flush(5000));
        QCOMPARE(lines(offlineLog), (QStringList{separator, booted, separator}));
        QVERIFY(typeId("LogInformation") != QMetaType::UnknownType);
        QVERIFY(typeId("QList<LogInformation>") != QMetaType::UnknownType);
        QCOMPARE(typeId("QList<LogInformation>&"), typeId("QList<LogInformation>"));
        // Hosts and queued calls name the signals by index; moc lists quint16 as ushort.
        const QMetaObject& meta = UserLog::staticMetaObject;
        QStringList signatures;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
            signatures << QString::fromLatin1(meta.method(i).methodSignature());
        QCOMPARE(signatures.join(' '),
                 "sendUserLogs(QString,QString,QString,int) sendUserLogs(QList<LogInformation>) "
                 "singalConnectedWithController(bool) "
                 "sendBccConnectState(bool,QString,ushort,QString)"_s);
    }

    // Posted back to back: each entry must use the state in force when its event runs,
    // whatever the log thread has done by the time it is queued. Repeated reports of
    // the same controller state are not passed on.
    void entriesFollowQueuedReports()
    {
        UserLog* log = UserLog::logger();
        QSignalSpy reports(log, &UserLog::singalConnectedWithController);
        log->recordLog("M"_s, "T1"_s, "s"_s, 6);
        log->recordLog({{"T2"_s, "M"_s, "b"_s, 5}});
        log->connectedWithController(true);
        log->connectedWithController(true);
        log->recordLog("M"_s, "T3"_s, "s"_s, 6);
        log->recordLog({{"T4"_s, "M"_s, "b"_s, 5}, {"T5"_s, "M"_s, "i"_s, 2}});
        log->connectedWithController(false);
        log->connectedWithController(false);
        log->recordLog("M"_s, "T6"_s, "s"_s, 6);
        log->recordLog({{"T7"_s, "M"_s, "b"_s, 5}});
        QVERIFY(log->flush(10000));
        QCOMPARE(reports.count(), 2);

        const QString t1 = "**T1** <M> <log> s"_s, t2 = "**T2** <M> <printinfo> b"_s;
        const QString t3 = "-- T3 -- <M> <log> s"_s, t4 = "-- T4 -- <M> <printinfo> b"_s;
        const QString t6 = "**T6** <M> <log> s"_s, t7 = "**T7** <M> <printinfo> b"_s;
        QCOMPARE(lines(offlineLog).filter("<M>"_s), (QStringList{t1, t2, t6, t7}));
        QCOMPARE(lines("log/offline/user_print_file_off_0_*.txt"_s).filter("<M>"_s),
                 (QStringList{t1, t2}));
        QCOMPARE(lines("log/online/user_log_file_0.txt"_s).filter("<M>"_s),
                 (QStringList{t3, t4, "-- T5 -- <M> <info> i"_s}));
        // After the loss print entries stay in the online print file.
        QCOMPARE(lines("log/useronline/user_print_file_0_*.txt"_s).filter("<M>"_s),
                 (QStringList{t3, t4, t6, t7}));
    }

    // On the log thread flush() gives up at once, however long it was told to wait;
    // elsewhere it waits for the log thread, up to its timeout, and flush(0) only looks.
    void flushWaitsForTheLogThread()
    {
        UserLog* log = UserLog::logger();
        const QtMessageHandler previous = qInstallMessageHandler(holdLogThread);
        const auto restore = qScopeGuard([previous] { qInstallMessageHandler(previous); });
        {
            const QSemaphoreReleaser letGo(releaseLogThread); // also when a check fails
            log->recordLog("B"_s, "T"_s, QString(), 2);
            QVERIFY(logThreadHeld.tryAcquire(1, 60000));
            QCOMPARE(heldThreadName, "UserLogThread"_s);
            QVERIFY(!flushedWhileHeld);
            log->recordLog("B"_s, "T"_s, "queued behind the held entry"_s, 2);
            QVERIFY(!log->flush(0));
            QElapsedTimer timer;
            timer.start();
            QVERIFY(!log->flush(200));
            QVERIFY(timer.elapsed() >= 190);
        }
        QVERIFY(log->flush());
        QCOMPARE(lines(offlineLog).last(), "**T** <B> <info> queued behind the held entry"_s);
    }

    // Eight host threads at once, singles and batches: every line arrives, each
    // thread's in the order it logged them.
    void concurrentHosts()
    {
        UserLog* log = UserLog::logger();
        std::vector<std::thread> hosts;
        for (int t = 0; t < 8; ++t)
            hosts.emplace_back([t, log] {
                for (int i = 0; i < 500; i += 2) {
                    log->recordLog("H"_s, "T"_s, "%1 %2"_s.arg(t).arg(i), 6);
                    log->recordLog({{"T"_s, "H"_s, "%1 %2"_s.arg(t).arg(i + 1), 5}});
                }
            });
        for (std::thread& host : hosts)
            host.join();
        QVERIFY(log->flush()); // under Wine each event takes milliseconds
        QVector<int> next(8, 0);
        for (const QString& line : lines(offlineLog).filter("<H>"_s))
            QCOMPARE(line.section(' ', -1).toInt(), next[line.section(' ', -2, -2).toInt()]++);
        QCOMPARE(next, QVector<int>(8, 500));
    }

private:
    QStringList lines(const QString& path) const
    {
        return withoutTimes(readLines(anyDay(_tree.path(path))));
    }

    TestTree _tree;
};

QTEST_GUILESS_MAIN(TestFacade)
#include "tst_facade.moc"
