// The exported facade through its public header only. The singleton lives for the whole
// process, so each scenario runs as a process of its own: "facade" with a QCoreApplication,
// "noApplication" without one.
#include "testtree.h"
#include "tst_logfiles_support.h"

#include <userlog/userlog.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QSemaphore>
#include <QtCore/QThread>
#include <QtTest/QSignalSpy>
#include <QtTest/QtTest>

#include <cstdio>
#include <functional>
#include <type_traits>

class TestFacade : public QObject
{
    Q_OBJECT

private slots:
    void facade();
};

void TestFacade::facade()
{
    static_assert(!std::is_default_constructible<UserLog>::value, "only logger() creates it");
    static_assert(!std::is_destructible<UserLog>::value, "the host cannot destroy it");
    TestTree tree;
    const QString offline = tree.logDir("offline"_s) + "/user_print_file_off"_s;
    const QString online = tree.logDir("online"_s) + "/user_log_file_0.txt"_s;
    QCOMPARE(QMetaType::type("QList<LogInformation>&"), int(QMetaType::UnknownType));
    UserLog* log = UserLog::logger();
    QCOMPARE(readLines(offline).size(), 3); // the banner, written before logger() returned
    QCOMPARE(UserLog::logger(), log);
    QVERIFY(QMetaType::type("LogInformation") != QMetaType::UnknownType);
    QVERIFY(QMetaType::type("QList<LogInformation>") != QMetaType::UnknownType);
    QCOMPARE(QMetaType::type("QList<LogInformation>&"), QMetaType::type("QList<LogInformation>"));

    QSignalSpy states(log, &UserLog::singalConnectedWithController);
    for (const bool connected : {false, true, true, false}) // repeats are not passed on
        log->connectedWithController(connected);
    QVERIFY(log->flush(5000));
    QCOMPARE(states.count(), 2);
    QCOMPARE(withoutTimes(readLines(online)).filter("controller!"_s),
             (QStringList{"-- T -- <user log> <log> krn system connected with controller!"_s,
                          "**T** <user log> <log> krn system lost connection with controller!"_s}));

    // On the log thread flush() gives up at once; elsewhere it waits up to its timeout.
    QString threadName;
    bool flushedThere = true;
    qint64 elapsedThere = -1;
    QSemaphore entered;
    QSemaphore release;
    // Runs on the thread that prints "no log information to write!", which an entry with an
    // empty message provokes: the log thread.
    static std::function<void()> onLogThread;
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& message) {
        if (message == "no log information to write!"_s)
            onLogThread();
    });
    onLogThread = [&] {
        threadName = QThread::currentThread()->objectName();
        QElapsedTimer timer;
        timer.start();
        flushedThere = log->flush(5000);
        elapsedThere = timer.elapsed();
        entered.release();
        release.acquire();
    };
    log->recordLog("B"_s, "T"_s, QString(), 2);
    QVERIFY(entered.tryAcquire(1, 5000));
    QCOMPARE(threadName, "UserLogThread"_s);
    QVERIFY(!flushedThere && elapsedThere < 1000);
    log->recordLog("B"_s, "T"_s, "queued behind the block"_s, 2);
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!log->flush(0) && timer.elapsed() < 100);
    timer.restart();
    QVERIFY(!log->flush(200) && timer.elapsed() >= 190 && timer.elapsed() < 2000);
    release.release();
    QVERIFY(log->flush(10000));
    QCOMPARE(withoutTimes(readLines(offline)).last(), "**T** <B> <info> queued behind the block"_s);
}

int main(int argc, char** argv)
{
    if (argc < 2 || qstrcmp(argv[1], "noApplication") != 0) {
        QCoreApplication app(argc, argv);
        TestFacade test;
        return QTest::qExec(&test, argc, argv);
    }
    // Without a QCoreApplication the banner is still written on the calling thread, and
    // flush() gives up at once instead of waiting.
    TestTree tree;
    UserLog* log = UserLog::logger();
    QElapsedTimer timer;
    timer.start();
    const bool flushed = log->flush(3000);
    const qint64 elapsed = timer.elapsed();
    const int lines = readLines(tree.logDir("offline"_s) + "/user_print_file_off"_s).size();
    std::printf("flush: %d after %lld ms, banner lines: %d\n", int(flushed), elapsed, lines);
    return !flushed && elapsed < 1000 && lines == 3 ? 0 : 1;
}

#include "tst_facade.moc"
