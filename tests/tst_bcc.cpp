// The bcc connection log as a host sees it: report lines by link state, the
// four-probe series against peers that accept, refuse or never answer on
// loopback, series that overlap, and a log that cannot be written. One process:
// each function waits until its probes have ended before the next one starts.
#include "testtree.h"

#include <userlog/userlog.h>

#include <QtCore/QtCore>
#include <QtNetwork/QtNetwork>
#include <QtTest/QtTest>

#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

const QString ipv4 = QStringLiteral("127.0.0.1");
const QString localhost = QStringLiteral("localhost");

const int Accepting = 0, Refusing = 1, Silent = 2;

QString bccLogPath(const TestTree& tree)
{
    return tree.path(QStringLiteral("log/bccLog/bcc_log_file_0.txt"));
}

// Reads the bcc log until it holds count lines, then on for quietMs so that a line
// too many shows up as well, and notes when each line first showed up: the stamps
// in the file have whole seconds only. bodies() strips the "-- yyyy-MM-dd hh:mm:ss -- "
// headers, whose times must lie within the wait; a bad header stays, marked.
struct BccLogWatch
{
    explicit BccLogWatch(const TestTree& tree) : path(bccLogPath(tree)) { clock.start(); }
    void read(int count, int msecs, int quietMs)
    {
        auto poll = [&] {
            lines = readLines(path);
            while (seenAt.size() < lines.size())
                seenAt.append(clock.elapsed());
            return lines.size();
        };
        if (QTest::qWaitFor([&] { return poll() >= count; }, msecs))
            (void)QTest::qWaitFor([&] { return poll() > count; }, quietMs);
    }
    QStringList bodies() const
    {
        static const QRegularExpression header(
            QStringLiteral("^-- (\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d) -- "));
        const QDateTime to = QDateTime::currentDateTime();
        QStringList result;
        for (const QString& line : lines) {
            const QRegularExpressionMatch match = header.match(line);
            const QDateTime time =
                QDateTime::fromString(match.captured(1), QStringLiteral("yyyy-MM-dd hh:mm:ss"));
            const bool ok = match.hasMatch() && time.isValid() && time >= from && time <= to;
            result.append(ok ? line.mid(match.capturedLength()) : "bad header: " + line);
        }
        return result;
    }
    QString path;
    QDateTime from = QDateTime::fromSecsSinceEpoch(QDateTime::currentSecsSinceEpoch());
    QElapsedTimer clock;
    QStringList lines;
    QVector<qint64> seenAt;
};

// A loopback port that refuses connections: bound once, then released (0 refuses too).
quint16 refusedPort()
{
    QTcpServer server;
    return server.listen(QHostAddress::LocalHost) ? server.serverPort() : 0;
}

} // namespace

class TestBcc : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        _capture = std::make_unique<MessageCapture>();
        _tree = std::make_unique<TestTree>();
        QVERIFY(_tree->isValid());
    }
    void cleanup();
    void reportStates();
    void probeSeries_data();
    void probeSeries()
    {
        QFETCH(QString, address);
        QFETCH(int, peer);
        series(address, peer);
    }
    void silentPeer() { series(ipv4, Silent); }
    void unwritableLog_data();
    void unwritableLog();

private:
    void series(const QString& address, int peer);

    std::unique_ptr<TestTree> _tree;
    std::unique_ptr<MessageCapture> _capture;
};

// After a failure probes may still be pending, and they write relative to the
// working directory, which leaves the test tree next: waits until the bcc log and
// the debug output have stood still for 2.5 s, or ends the process inside the tree.
void TestBcc::cleanup()
{
    const QString path = bccLogPath(*_tree);
    auto activity = [&] { return qMakePair(readLines(path).size(), _capture->messages().size()); };
    for (int still = 0, waited = 0; QTest::currentTestFailed() && still < 2500; waited += 50) {
        if (waited > 20000) {
            qCritical("bcc probes do not stop; ending the process inside the test tree");
            std::fflush(stdout);
            std::_Exit(EXIT_FAILURE);
        }
        const auto before = activity();
        QTest::qWait(50);
        still = activity() == before ? still + 50 : 0;
    }
    _capture.reset();
    _tree.reset();
}

// The rows run one after another in one process, so each row after the first
// also shows that a finished series leaves the watch ready for a full new one.
void TestBcc::probeSeries_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<int>("peer");
    QTest::newRow("accepting on 127.0.0.1") << ipv4 << Accepting;
    QTest::newRow("accepting on ::1") << QStringLiteral("::1") << Accepting;
    QTest::newRow("refusing on 127.0.0.1") << ipv4 << Refusing;
}

// A broken report, then four probe lines. Each probe takes wait ms (a silent peer
// makes it wait out its limit) and the next one starts 500 ms after it ended.
void TestBcc::series(const QString& address, int peer)
{
    QTcpServer server;
    QTcpSocket fillers[4];
    if (!server.listen(QHostAddress(address)) && address.contains(QLatin1Char(':')))
        QSKIP(qPrintable("no IPv6 loopback here: " + server.errorString()));
    QVERIFY2(server.isListening(), qPrintable(server.errorString()));
    const quint16 port = server.serverPort();
    if (peer == Refusing)
        server.close();
    if (peer == Silent) {
        // Nobody accepts and the accept queue is cut down to one and filled: the
        // kernel then drops every further SYN, so connection attempts get no reply.
        server.pauseAccepting();
        ::listen(int(server.socketDescriptor()), 0);
        int filled = 0;
        for (QTcpSocket& filler : fillers) {
            filler.connectToHost(address, port);
            filled += filler.waitForConnected(200) ? 1 : 0;
        }
        if (filled == 4)
            QSKIP("no silent port here: a listener that accepts nothing, its accept queue cut "
                  "down to one, still completes every connection attempt");
    }
    UserLog* log = UserLog::logger();
    QVERIFY(log->flush(5000));
    BccLogWatch watch(*_tree);
    log->recordBccLog(false, address, port, QStringLiteral("link down"));

    const int wait = peer == Silent ? 1500 : 0;
    watch.read(5, 4 * wait + 8000, wait + 800);
    const QString probe = peer == Accepting ? "tcp connection with " + address + " is ok"
                                            : "tcp lost connection with " + address;
    QCOMPARE(watch.bodies(),
             QStringList({"bcc connection with " + address + " is broken, message:link down", probe,
                          probe, probe, probe}));
    for (int line = 1; line <= 4; ++line) {
        const qint64 gap = watch.seenAt[line] - watch.seenAt[line - 1];
        const int expected = wait + (line > 1 ? 500 : 0);
        QVERIFY2(gap >= expected - 200 && gap <= expected + 2000,
                 qPrintable(QStringLiteral("gap before line %1: %2 ms").arg(line).arg(gap)));
    }
    const qint64 total = watch.seenAt[4] - watch.seenAt[0];
    QVERIFY2(total <= 4 * wait + 4500, qPrintable(QStringLiteral("series took %1 ms").arg(total)));
}

// A host's reports through every link state, with the controller offline at
// start-up, then online, then offline again: the header stays "-- time --".
// The markers are filled one after the other, so a "%3" in the address takes
// the message too.
// Two broken reports in a row share one probe counter: the first one's probe
// arms timer A, the second's timer B; A's next probe finds 2 and arms again,
// B's finds 3, resets and ends, and A goes on for four more: 2 + 2 + 4 probes.
// The probes aim at the last report taken in, which tells a dropped one apart.
void TestBcc::reportStates()
{
    if (QHostInfo::fromName(localhost).addresses().isEmpty())
        QSKIP("localhost does not resolve here (a system without /etc/hosts?)");
    QTcpServer peer;
    QVERIFY(peer.listen(QHostAddress::LocalHost));
    const quint16 up = peer.serverPort();
    const quint16 down = refusedPort();
    UserLog* log = UserLog::logger();
    BccLogWatch watch(*_tree);
    log->recordBccLog(true, QString(), up, QStringLiteral("x")); // no address: nothing at all
    log->recordBccLog(false, QString(), down, QStringLiteral("x"));
    log->recordBccLog(true, QStringLiteral("cam%3"), up, QStringLiteral("up %1 at 100%"));
    log->recordBccLog(true, localhost, down, QStringLiteral("already up"));
    log->connectedWithController(true);
    log->recordBccLog(false, localhost, down, QString());
    log->recordBccLog(false, localhost, down, QStringLiteral("again"));
    log->recordBccLog(true, ipv4, up, QString());
    log->recordBccLog(true, localhost, down, QStringLiteral("already up"));
    log->connectedWithController(false);

    watch.read(12, 10000, 800);
    const QString lost = QStringLiteral("tcp lost connection with localhost");
    const QString ok = QStringLiteral("tcp connection with 127.0.0.1 is ok");
    QCOMPARE(watch.bodies(),
             QStringList({"bcc connected to camup %1 at 100%, message:up %1 at 100%",
                          "bcc connection with localhost is broken, message:", lost,
                          "bcc connection with localhost is broken, message:again", lost,
                          "bcc connected to 127.0.0.1, message:", ok, ok, ok, ok, ok, ok}));
}

void TestBcc::unwritableLog_data()
{
    QTest::addColumn<bool>("dirBlocked");
    // This row first: the file must be in place before logger() makes the log directories.
    QTest::newRow("a file where the log directory goes") << true;
    QTest::newRow("a directory where the bcc log file goes") << false;
}

// Every line, the report's and each probe's, fails on its own with its own
// messages, and the probe series goes on regardless.
void TestBcc::unwritableLog()
{
    QFETCH(bool, dirBlocked);
    QStringList perLine{"make log dir failed!", "error, can not make bcc log dir!"};
    if (dirBlocked) {
        QVERIFY(makeFile(_tree->path(QStringLiteral("log"))));
    } else {
        QFile blocked(bccLogPath(*_tree));
        QVERIFY(QDir().mkpath(blocked.fileName()));
        QVERIFY(!blocked.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text));
        perLine = QStringList{"open bcc log file error3:" + blocked.errorString()};
    }
    UserLog* log = UserLog::logger();
    QVERIFY(log->flush(5000));
    const int before = _capture->messages().size();
    log->recordBccLog(false, ipv4, refusedPort(), QStringLiteral("link down"));

    const QStringList expected = perLine + perLine + perLine + perLine + perLine;
    auto count = [&] { return _capture->messages().size() - before; };
    if (QTest::qWaitFor([&] { return count() >= expected.size(); }, 10000))
        (void)QTest::qWaitFor([&] { return count() > expected.size(); }, 800);
    QCOMPARE(_capture->messages().mid(before), expected);
}

QTEST_GUILESS_MAIN(TestBcc)
#include "tst_bcc.moc"
