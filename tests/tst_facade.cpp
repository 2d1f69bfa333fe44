// The exported facade through its public header only. The singleton lives for
// the whole process, so every test function runs as a process of its own.
#include "testtree.h"
#include "tst_logfiles_support.h"

#include <userlog/userlog.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QMetaMethod>
#include <QtCore/QSemaphore>
#include <QtCore/QThread>
#include <QtTest/QSignalSpy>
#include <QtTest/QtTest>

#include <functional>
#include <type_traits>

namespace {

const QString connectedLine = "-- T -- <user log> <log> krn system connected with controller!"_s;
const QString lostLine = "**T** <user log> <log> krn system lost connection with controller!"_s;

// The lines of a file without banner separators, times shown as "T".
QStringList normalized(const QString& path)
{
    return withoutTimes(readLines(path)).filter(QRegularExpression("^[^/]"_s));
}

// Runs on the thread that prints the writer's debug message "no log information
// to write!", which an entry with an empty message provokes: the log thread.
std::function<void()> onLogThread;
QtMessageHandler previousHandler = nullptr;

void hookHandler(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (message == "no log information to write!"_s && onLogThread)
        onLogThread();
    if (previousHandler != nullptr)
        previousHandler(type, context, message);
}

void provokeLogThread(std::function<void()> hook)
{
    onLogThread = std::move(hook);
    previousHandler = qInstallMessageHandler(hookHandler);
    UserLog::logger()->recordLog("B"_s, "T"_s, QString(), 2);
}

} // namespace

class TestFacade : public QObject
{
    Q_OBJECT

private slots:
    void singleInstance();
    void signalIndexes_data();
    void signalIndexes();
    void connectedWithController();
    void hostConnections();
    void flushOnLogThread();
    void flushWithBlockedWriter();
};

void TestFacade::singleInstance()
{
    static_assert(!std::is_default_constructible<UserLog>::value, "only logger() creates it");
    static_assert(!std::is_destructible<UserLog>::value, "the host cannot destroy it");
    TestTree tree;
    QCOMPARE(QMetaType::type("QList<LogInformation>&"), int(QMetaType::UnknownType));
    UserLog* first = UserLog::logger();
    // No event loop has run yet: the banner was written on this thread.
    const QString offline = tree.logDir("offline"_s);
    QCOMPARE(readLines(offline + "/user_print_file_off"_s).size(), 3);
    QVERIFY(QMetaType::type("LogInformation") != QMetaType::UnknownType);
    const int list = QMetaType::type("QList<LogInformation>");
    QVERIFY(list != QMetaType::UnknownType);
    QCOMPARE(QMetaType::type("QList<LogInformation>&"), list);

    QCOMPARE(UserLog::logger(), first);
    QVERIFY(first->flush(5000));
    QCOMPARE(fileNames(offline).size(), 2);
    QCOMPARE(readLines(offline + "/user_print_file_off"_s).size(), 3);
}

void TestFacade::signalIndexes_data()
{
    columns({"index"}); // the row name is the signature
    row("sendUserLogs(QString,QString,QString,int)", "0");
    row("sendUserLogs(QList<LogInformation>)", "1");
    row("singalConnectedWithController(bool)", "2");
    row("sendBccConnectState(bool,QString,quint16,QString)", "3");
}

void TestFacade::signalIndexes()
{
    QFETCH(QString, index);
    const QMetaObject& meta = UserLog::staticMetaObject;
    QCOMPARE(meta.methodCount() - meta.methodOffset(), 4);
    const int found = meta.indexOfSignal(QMetaObject::normalizedSignature(QTest::currentDataTag()));
    QCOMPARE(found, meta.methodOffset() + index.toInt());
    QCOMPARE(meta.method(found).access(), QMetaMethod::Public);
}

void TestFacade::connectedWithController()
{
    TestTree tree;
    UserLog* log = UserLog::logger();
    QSignalSpy spy(log, &UserLog::singalConnectedWithController);
    const QString online = tree.logDir("online"_s) + "/user_log_file_0.txt"_s;

    log->connectedWithController(false);
    QVERIFY(log->flush(5000));
    QCOMPARE(spy.count(), 0);
    QVERIFY(!QFile::exists(online));

    log->connectedWithController(true);
    log->connectedWithController(true);
    QVERIFY(log->flush(5000));
    QCOMPARE(spy.count(), 1);
    QCOMPARE(normalized(online), QStringList{connectedLine});

    log->connectedWithController(false);
    QVERIFY(log->flush(5000));
    QCOMPARE(spy.count(), 2);
    QCOMPARE(spy.at(1).at(0).toBool(), false);
    QCOMPARE(normalized(online), (QStringList{connectedLine, lostLine}));
}

void TestFacade::hostConnections()
{
    TestTree tree;
    UserLog* log = UserLog::logger();
    QSignalSpy entries(log, qOverload<QString, QString, QString, int>(&UserLog::sendUserLogs));
    QSignalSpy batches(log, qOverload<QList<LogInformation>>(&UserLog::sendUserLogs));
    QSignalSpy states(log, &UserLog::singalConnectedWithController);
    QSignalSpy bcc(log, &UserLog::sendBccConnectState);
    log->recordLog("B"_s, "T1"_s, "one"_s, 2);
    log->recordLog({{"T2"_s, "B"_s, "two"_s, 5}, {"T3"_s, "C"_s, "three"_s, 6}});
    log->connectedWithController(true);
    log->recordBccLog(false, QString(), 502, "down"_s);
    QCOMPARE(entries.value(0), (QVariantList{"B"_s, "T1"_s, "one"_s, 2}));
    QStringList fields;
    for (const LogInformation& entry : batches.value(0).value(0).value<QList<LogInformation>>())
        fields << entry.time << entry.block << entry.logInfo << QString::number(entry.level);
    QCOMPARE(fields, (QStringList{"T2"_s, "B"_s, "two"_s, "5"_s, "T3"_s, "C"_s, "three"_s, "6"_s}));
    QCOMPARE(states.value(0), QVariantList{true});
    QCOMPARE(bcc.value(0), (QVariantList{false, QString(), quint16(502), "down"_s}));
    QVERIFY(log->flush(5000));
    QCOMPARE(readLines(tree.logDir("online"_s) + "/user_log_file_0.txt"_s).size(), 3);
}

void TestFacade::flushOnLogThread()
{
    TestTree tree;
    UserLog* log = UserLog::logger();
    QString threadName;
    bool flushed = true;
    qint64 elapsed = -1;
    provokeLogThread([&] {
        threadName = QThread::currentThread()->objectName();
        QElapsedTimer timer;
        timer.start();
        flushed = log->flush(5000);
        elapsed = timer.elapsed();
    });
    QVERIFY(log->flush(10000));
    QCOMPARE(threadName, "UserLogThread"_s);
    QVERIFY(!flushed);
    QVERIFY2(elapsed < 1000, qPrintable(QString::number(elapsed)));
}

void TestFacade::flushWithBlockedWriter()
{
    TestTree tree;
    UserLog* log = UserLog::logger();
    QSemaphore entered;
    QSemaphore release;
    provokeLogThread([&] {
        entered.release();
        release.acquire();
    });
    QVERIFY(entered.tryAcquire(1, 5000));
    log->recordLog("B"_s, "T"_s, "queued behind the block"_s, 2);
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!log->flush(0));
    QVERIFY(timer.elapsed() < 100);
    timer.restart();
    QVERIFY(!log->flush(200));
    QVERIFY(timer.elapsed() >= 190 && timer.elapsed() < 2000);
    release.release();
    QVERIFY(log->flush(10000));
    QCOMPARE(normalized(tree.logDir("offline"_s) + "/user_print_file_off"_s).last(),
             "**T** <B> <info> queued behind the block"_s);
}

QTEST_GUILESS_MAIN(TestFacade)
#include "tst_facade.moc"
