// Load: eight host threads log single entries and batches (40,000 lines) while
// bcc reports make the log thread probe a loopback peer. Every line arrives,
// each thread's lines in the order it logged them. Reports the peak resident
// size and how far the log thread fell behind the hosts.
#include <userlog/userlog.h>

#include "testtree.h"

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFileInfo>
#include <QtCore/QLoggingCategory>
#include <QtNetwork/QTcpServer>
#include <QtTest/QtTest>

#include <atomic>
#include <thread>
#include <vector>

#include <sys/resource.h>

namespace {

constexpr int threadCount = 8;
constexpr int rounds = 50;
constexpr int singlesPerRound = 50;
constexpr int batchSize = 50;
constexpr int linesPerThread = rounds * (singlesPerRound + batchSize);

long peakRssKiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// Every line has the same length, so the bytes on disk tell how many were written.
QString message(int thread, int sequence)
{
    return QStringLiteral("t%1 n%2 ").arg(thread).arg(sequence, 5, 10, QLatin1Char('0')) +
           QString(40, QLatin1Char('.'));
}

const QString lineStart = QStringLiteral("-- 12:00:00.000 -- <host> <info> ");
const int lineBytes = lineStart.size() + message(0, 0).size() + 1;

qint64 bytesIn(const QString& dir)
{
    qint64 bytes = 0;
    for (const QFileInfo& info : QDir(dir).entryInfoList(QDir::Files))
        bytes += info.size();
    return bytes;
}

} // namespace

class ReliabilityLoad : public QObject
{
    Q_OBJECT

private slots:
    void manyHostThreads();
};

void ReliabilityLoad::manyHostThreads()
{
    // Forty thousand lines would otherwise each pass through the message handler.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    TestTree tree;
    QTcpServer peer;
    QVERIFY(peer.listen(QHostAddress::LocalHost));
    const quint16 port = peer.serverPort();
    connect(&peer, &QTcpServer::newConnection, [&peer] {
        while (peer.hasPendingConnections())
            delete peer.nextPendingConnection();
    });
    UserLog* log = UserLog::logger();
    log->connectedWithController(true);
    QVERIFY(log->flush(60000));
    const QString onlineDir = tree.logDir(QStringLiteral("online"));
    const qint64 bannerBytes = bytesIn(onlineDir);
    const long rssBefore = peakRssKiB();

    std::atomic<qint64> posted{0};
    std::vector<std::thread> hosts;
    QElapsedTimer clock;
    clock.start();
    for (int t = 0; t < threadCount; ++t) {
        hosts.emplace_back([t, log, port, &posted] {
            const QString block = QStringLiteral("host");
            const QString time = QStringLiteral("12:00:00.000");
            int sequence = 0;
            for (int round = 0; round < rounds; ++round) {
                for (int i = 0; i < singlesPerRound; ++i, ++posted)
                    log->recordLog(block, time, message(t, sequence++), 2);
                QList<LogInformation> batch;
                for (int i = 0; i < batchSize; ++i)
                    batch.append({time, block, message(t, sequence++), 2});
                log->recordLog(batch);
                posted += batchSize;
                if (round == 10 || round == 30)
                    log->recordBccLog(round == 30, QStringLiteral("127.0.0.1"), port,
                                      QStringLiteral("host %1").arg(t));
            }
        });
    }
    // Samples the backlog: lines posted but not yet on disk.
    qint64 maxBacklog = 0;
    while (posted < qint64(threadCount) * linesPerThread) {
        const qint64 written = (bytesIn(onlineDir) - bannerBytes) / lineBytes;
        maxBacklog = std::max(maxBacklog, posted - written);
        QTest::qWait(10);
    }
    for (std::thread& host : hosts)
        host.join();
    const qint64 postedMs = clock.elapsed();
    QVERIFY(log->flush(300000));
    qInfo("%d lines posted in %lld ms, on disk after %lld ms; largest backlog %lld lines; "
          "peak RSS %ld KiB (%ld KiB before the load)",
          threadCount * linesPerThread, postedMs, clock.elapsed(), maxBacklog, peakRssKiB(),
          rssBefore);

    QVector<int> next(threadCount, 0);
    int lines = 0;
    for (int index = 0;
         QFileInfo::exists(onlineDir + QStringLiteral("/user_log_file_%1.txt").arg(index));
         ++index) {
        for (const QString& line :
             readLines(onlineDir + QStringLiteral("/user_log_file_%1.txt").arg(index))) {
            if (!line.startsWith(lineStart))
                continue;
            const int thread = line.mid(lineStart.size() + 1, 1).toInt();
            const QString expected = lineStart + message(thread, next[thread]++);
            QVERIFY2(line == expected,
                     qPrintable(line + QStringLiteral(" instead of ") + expected));
            ++lines;
        }
    }
    QCOMPARE(lines, threadCount * linesPerThread);

    // Each broken report is logged and probed at once; the peer accepts every probe.
    const QString bccPath =
        tree.logDir(QStringLiteral("bccLog")) + QStringLiteral("/bcc_log_file_0.txt");
    QStringList bcc = readLines(bccPath);
    QCOMPARE(bcc.filter(QStringLiteral(" is broken, message:host ")).size(), threadCount);
    QVERIFY(bcc.filter(QStringLiteral(" tcp connection with 127.0.0.1 is ok")).size() >=
            threadCount);
    QCOMPARE(bcc.filter(QStringLiteral(" tcp lost connection ")).size(), 0);
    // Waits until the probe series have ended (no new line for 2.5 s): one still
    // running would write into the next working directory.
    for (int i = 0, size = -1; i < 12 && size != bcc.size(); ++i) {
        size = bcc.size();
        QTest::qWait(2500);
        bcc = readLines(bccPath);
    }
}

QTEST_GUILESS_MAIN(ReliabilityLoad)
#include "tst_reliability_load.moc"
