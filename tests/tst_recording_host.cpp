// Recording as a host sees it through the public API: the files and header
// chosen for entries queued around connection reports, and entries from
// several host threads at once. Each scenario needs a fresh singleton, so each
// runs in a process of its own.
#include <userlog/userlog.h>

#include "testtree.h"

#include <QtCore/QDate>
#include <QtCore/QRegularExpression>
#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <memory>
#include <vector>

namespace {

const QString separator = QStringLiteral("//---------------------------------");
const QString bootBanner =
    QStringLiteral("**<now>** <user log> <log> krn user log systerm booted up!");
const QString connectedBanner =
    QStringLiteral("-- <now> -- <user log> <log> krn system connected with controller!");
const QString lostBanner =
    QStringLiteral("**<now>** <user log> <log> krn system lost connection with controller!");

QString today()
{
    return QDate::currentDate().toString(QStringLiteral("yyyy-MM-dd"));
}

// The file's lines with the writer's own time stamps (banners) replaced by "<now>".
QStringList linesWithoutClock(const QString& path)
{
    static const QRegularExpression stamp(
        QStringLiteral("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d"));
    QStringList lines = readLines(path);
    for (QString& line : lines)
        line.replace(stamp, QStringLiteral("<now>"));
    return lines;
}

LogInformation entry(const QString& time, const QString& block, const QString& message, int level)
{
    return LogInformation{time, block, message, level};
}

} // namespace

class RecordingHostTest : public QObject
{
    Q_OBJECT

private slots:
    void entriesFollowQueuedConnectionReports();
    void concurrentHostThreadsLoseNothing();
};

void RecordingHostTest::entriesFollowQueuedConnectionReports()
{
    TestTree tree;
    QVERIFY(tree.isValid());
    UserLog* log = UserLog::logger();
    const QString main = QStringLiteral("MAIN");

    // Posted back to back: each entry must use the state in force when its
    // event runs, whatever the log thread has done by the time it is queued.
    log->recordLog(main, QStringLiteral("T1"), QStringLiteral("single before connect"), 6);
    log->recordLog({entry(QStringLiteral("T2"), main, QStringLiteral("batch before connect"), 5)});
    log->connectedWithController(true);
    log->recordLog(main, QStringLiteral("T3"), QStringLiteral("single while connected"), 6);
    log->recordBccLog(true, QStringLiteral("127.0.0.1"), 4242, QStringLiteral("bcc up"));
    log->recordLog({entry(QStringLiteral("T4"), main, QStringLiteral("batch while connected"), 5),
                    entry(QStringLiteral("T5"), main, QStringLiteral("plain batch entry"), 2)});
    log->connectedWithController(false);
    log->recordLog(main, QStringLiteral("T6"), QStringLiteral("single after loss"), 6);
    log->recordLog({entry(QStringLiteral("T7"), main, QStringLiteral("batch after loss"), 5)});
    QVERIFY(log->flush(10000));

    const QString t1 = QStringLiteral("**T1** <MAIN> <log> single before connect");
    const QString t2 = QStringLiteral("**T2** <MAIN> <printinfo> batch before connect");
    const QString t3 = QStringLiteral("-- T3 -- <MAIN> <log> single while connected");
    const QString t4 = QStringLiteral("-- T4 -- <MAIN> <printinfo> batch while connected");
    const QString t5 = QStringLiteral("-- T5 -- <MAIN> <info> plain batch entry");
    const QString t6 = QStringLiteral("**T6** <MAIN> <log> single after loss");
    const QString t7 = QStringLiteral("**T7** <MAIN> <printinfo> batch after loss");

    const QString offline = tree.logDir(QStringLiteral("offline"));
    const QString offlinePrint =
        QStringLiteral("user_print_file_off_0_") + today() + QStringLiteral(".txt");
    QCOMPARE(fileNames(offline),
             (QStringList{QStringLiteral("user_print_file_off"), offlinePrint}));
    QCOMPARE(linesWithoutClock(offline + QStringLiteral("/user_print_file_off")),
             (QStringList{separator, bootBanner, separator, t1, t2, t6, t7}));
    QCOMPARE(linesWithoutClock(offline + QLatin1Char('/') + offlinePrint),
             (QStringList{separator, bootBanner, separator, t1, t2}));

    const QString online = tree.logDir(QStringLiteral("online"));
    QCOMPARE(fileNames(online), QStringList{QStringLiteral("user_log_file_0.txt")});
    QCOMPARE(linesWithoutClock(online + QStringLiteral("/user_log_file_0.txt")),
             (QStringList{separator, connectedBanner, separator, t3, t4, t5, separator, lostBanner,
                          separator}));

    // After the loss print entries stay in the online print file.
    const QString userOnline = tree.logDir(QStringLiteral("useronline"));
    const QString onlinePrint =
        QStringLiteral("user_print_file_0_") + today() + QStringLiteral(".txt");
    QCOMPARE(fileNames(userOnline), QStringList{onlinePrint});
    QCOMPARE(linesWithoutClock(userOnline + QLatin1Char('/') + onlinePrint),
             (QStringList{separator, connectedBanner, separator, t3, t4, separator, lostBanner,
                          separator, t6, t7}));

    // The bcc report was handled in between, in a log of its own.
    const QString bccDir = tree.logDir(QStringLiteral("bccLog"));
    QCOMPARE(fileNames(bccDir), QStringList{QStringLiteral("bcc_log_file_0.txt")});
    QCOMPARE(readLines(bccDir + QStringLiteral("/bcc_log_file_0.txt")).size(), 1);
}

void RecordingHostTest::concurrentHostThreadsLoseNothing()
{
    TestTree tree;
    QVERIFY(tree.isValid());
    UserLog* log = UserLog::logger();

    // Each round a thread logs one single entry and a batch of two; the message
    // carries the thread and its own running number.
    constexpr int threadCount = 4;
    constexpr int rounds = 60;
    constexpr int entriesPerThread = rounds * 3;
    std::vector<std::unique_ptr<QThread>> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back(QThread::create([log, t] {
            const QString block = QStringLiteral("host%1").arg(t);
            const auto message = [t](int seq) { return QStringLiteral("%1:%2").arg(t).arg(seq); };
            int seq = 0;
            for (int round = 0; round < rounds; ++round) {
                log->recordLog(block, QStringLiteral("T"), message(seq++), 6);
                QList<LogInformation> batch;
                batch.append(entry(QStringLiteral("T"), block, message(seq++), 5));
                batch.append(entry(QStringLiteral("T"), block, message(seq++), 5));
                log->recordLog(batch);
            }
        }));
    }
    for (auto& thread : threads)
        thread->start();
    for (auto& thread : threads)
        QVERIFY(thread->wait(30000));
    QVERIFY(log->flush(30000));

    const QString offline = tree.logDir(QStringLiteral("offline"));
    const QStringList userLines = readLines(offline + QStringLiteral("/user_print_file_off"));
    QCOMPARE(userLines.size(), 3 + threadCount * entriesPerThread);
    const QStringList entries = userLines.mid(3);

    static const QRegularExpression shape(
        QStringLiteral("^\\*\\*T\\*\\* <host(\\d)> <(log|printinfo)> (\\d):(\\d+)$"));
    int next[threadCount] = {};
    for (const QString& line : entries) {
        const QRegularExpressionMatch m = shape.match(line);
        QVERIFY2(m.hasMatch(), qPrintable(line));
        const int t = m.captured(1).toInt();
        QVERIFY2(t < threadCount && m.captured(3).toInt() == t, qPrintable(line));
        // A thread's entries keep their order: the single one, then its batch.
        const int seq = m.captured(4).toInt();
        QVERIFY2(seq == next[t], qPrintable(line));
        QCOMPARE(m.captured(2), seq % 3 == 0 ? QStringLiteral("log") : QStringLiteral("printinfo"));
        ++next[t];
    }
    for (int t = 0; t < threadCount; ++t)
        QCOMPARE(next[t], entriesPerThread);

    // Every entry was a print entry, so the print file holds the same lines in
    // the same order.
    const QString printFile =
        offline + QStringLiteral("/user_print_file_off_0_") + today() + QStringLiteral(".txt");
    QCOMPARE(readLines(printFile).mid(3), entries);
}

QTEST_GUILESS_MAIN(RecordingHostTest)
#include "tst_recording_host.moc"
