// Load: eight host threads log single entries and print batches (40,000 lines)
// while bcc reports make the log thread probe a loopback peer. Every line
// arrives, each thread's in the order it logged them, in the user log and in
// the print file alike; the files roll over as they fill.
#include "testtree.h"

#include <userlog/userlog.h>

#include <QtNetwork/QTcpServer>
#include <QtTest/QtTest>

#include <thread>
#include <vector>

namespace {

constexpr int threadCount = 8, rounds = 50, perRound = 50; // singles, then a batch of as many

// Every host line of a directory, files in index order: each thread's lines in
// the order it logged them, singles tagged "log" and batch entries "printinfo".
// Returns how many there are, or -1 at the first line out of place.
int linesInOrder(const QString& dir)
{
    static const QRegularExpression hostLine("^-- T -- <host> <(log|printinfo)> t(\\d) (\\d+)$"_s);
    QMap<int, QString> files;
    for (const QString& name : fileNames(dir))
        files.insert(name.section('_', 3, 3).section('.', 0, 0).toInt(), dir + '/' + name);
    QVector<int> next(threadCount, 0);
    int lines = 0;
    for (const QString& path : qAsConst(files)) {
        for (const QString& line : readLines(path)) {
            const QRegularExpressionMatch m = hostLine.match(line);
            const int sequence = m.captured(3).toInt();
            if (m.hasMatch() &&
                (sequence != next[m.captured(2).toInt()]++ ||
                 (m.captured(1) == "log"_s) != (sequence % (2 * perRound) < perRound)))
                return -1;
            lines += m.hasMatch() ? 1 : 0;
        }
    }
    return lines;
}

} // namespace

class TestLoad : public QObject
{
    Q_OBJECT

private slots:
    void manyHostThreads()
    {
        // Forty thousand lines would otherwise each pass through the message handler.
        QLoggingCategory::setFilterRules("default.debug=false"_s);
        TestTree tree;
        QTcpServer peer;
        QVERIFY(peer.listen(QHostAddress::LocalHost));
        UserLog* log = UserLog::logger();
        log->connectedWithController(true);
        std::vector<std::thread> hosts;
        for (int t = 0; t < threadCount; ++t) {
            hosts.emplace_back([t, log, port = peer.serverPort()] {
                for (int round = 0, sequence = 0; round < rounds; ++round) {
                    QList<LogInformation> batch;
                    for (int i = 0; i < perRound; ++i)
                        log->recordLog("host"_s, "T"_s, "t%1 %2"_s.arg(t).arg(sequence++), 6);
                    for (int i = 0; i < perRound; ++i)
                        batch.append({"T"_s, "host"_s, "t%1 %2"_s.arg(t).arg(sequence++), 5});
                    log->recordLog(batch);
                    if (round == 10 || round == 30)
                        log->recordBccLog(round == 30, "127.0.0.1"_s, port, "host %1"_s.arg(t));
                }
            });
        }
        for (std::thread& host : hosts)
            host.join();
        QVERIFY(log->flush(300000));
        const int lines = threadCount * rounds * 2 * perRound;
        QCOMPARE(linesInOrder(tree.path("log/online"_s)), lines);
        QCOMPARE(linesInOrder(tree.path("log/useronline"_s)), lines);
        QVERIFY(fileNames(tree.path("log/online"_s)).size() > 1);

        // Each broken report is logged and probed at once; the peer accepts every probe.
        // Then waits until the probe series have ended (no new line for 2.5 s): one still
        // running would write into the next working directory.
        const QString bccLog = tree.path("log/bccLog/bcc_log_file_0.txt"_s);
        QStringList bcc = readLines(bccLog);
        QCOMPARE(bcc.filter(" is broken, message:host "_s).size(), threadCount);
        QVERIFY(bcc.filter(" tcp connection with 127.0.0.1 is ok"_s).size() >= threadCount);
        for (int i = 0, size = -1; i < 12 && size != bcc.size(); ++i) {
            size = bcc.size();
            QTest::qWait(2500);
            bcc = readLines(bccLog);
        }
        QCOMPARE(bcc.filter(" tcp lost connection "_s).size(), 0);
    }
};

QTEST_GUILESS_MAIN(TestLoad)
#include "tst_load.moc"
