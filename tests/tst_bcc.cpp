// The bcc connection log as a host sees it: report lines by link state, the
// four-probe series against peers that accept, refuse or never answer on
// loopback, series that overlap, and a log that cannot be written.
#include "testtree.h"

#include <userlog/userlog.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QRegularExpression>
#include <QtNetwork/QHostAddress>
#include <QtNetwork/QTcpServer>
#include <QtTest/QtTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

const QString bccFileName = QStringLiteral("bcc_log_file_0.txt");
const QString ipv4 = QStringLiteral("127.0.0.1");
const QString localhost = QStringLiteral("localhost");

QString bccLogPath(const TestTree& tree)
{
    return tree.logDir(QStringLiteral("bccLog")) + QLatin1Char('/') + bccFileName;
}

// Waits for the bcc log to grow and notes when each line first showed up: the
// stamps in the file have whole seconds only, so pacing is measured here.
class BccLogWatch
{
public:
    explicit BccLogWatch(const TestTree& tree) : _path(bccLogPath(tree)) { _clock.start(); }

    // True once the log holds at least count lines, false when msecs pass first.
    bool waitForLines(int count, int msecs)
    {
        return QTest::qWaitFor([&] { return poll() >= count; }, msecs);
    }
    // True when no line beyond the first count arrives within msecs.
    bool staysAt(int count, int msecs)
    {
        return !waitForLines(count + 1, msecs) && poll() == count;
    }
    const QStringList& lines() const { return _lines; }
    // Milliseconds between the arrivals of lines from and to.
    qint64 gap(int from, int to) const { return _seenAt.at(to) - _seenAt.at(from); }

private:
    int poll()
    {
        _lines = readLines(_path);
        while (_seenAt.size() < _lines.size())
            _seenAt.append(_clock.elapsed());
        return _lines.size();
    }

    QString _path;
    QElapsedTimer _clock;
    QStringList _lines;
    QVector<qint64> _seenAt;
};

// Each line without its "-- yyyy-MM-dd hh:mm:ss -- " header, once the header is
// well formed and its time lies between from and to; otherwise the whole line,
// marked, so that a comparison shows what went wrong.
QStringList bodies(const QStringList& lines, const QDateTime& from, const QDateTime& to)
{
    static const QRegularExpression header(
        QStringLiteral("^-- (\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d) -- "));
    const QDateTime earliest = from.addMSecs(-from.time().msec());
    QStringList result;
    for (const QString& line : lines) {
        const QRegularExpressionMatch match = header.match(line);
        const QDateTime time =
            QDateTime::fromString(match.captured(1), QStringLiteral("yyyy-MM-dd hh:mm:ss"));
        const bool ok = match.hasMatch() && time.isValid() && time >= earliest && time <= to;
        result.append(ok ? line.mid(match.capturedLength())
                         : QStringLiteral("bad header: ") + line);
    }
    return result;
}

QString connectedBody(const QString& address, const QString& message)
{
    return QStringLiteral("bcc connected to ") + address + QStringLiteral(", message:") + message;
}

QString brokenBody(const QString& address, const QString& message)
{
    return QStringLiteral("bcc connection with ") + address +
           QStringLiteral(" is broken, message:") + message;
}

QString okBody(const QString& address)
{
    return QStringLiteral("tcp connection with ") + address + QStringLiteral(" is ok");
}

QString lostBody(const QString& address)
{
    return QStringLiteral("tcp lost connection with ") + address;
}

QString gapText(int from, int to, qint64 ms)
{
    return QStringLiteral("line %1 came %2 ms after line %3").arg(to).arg(ms).arg(from);
}

// A loopback port that refuses connections: bound once, then released. 0 on failure.
quint16 refusedPort()
{
    QTcpServer server;
    if (!server.listen(QHostAddress::LocalHost))
        return 0;
    const quint16 port = server.serverPort();
    server.close();
    return port;
}

// The framework's text for a failed append-open of path.
QString openErrorText(const QString& path)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
        return QStringLiteral("(unexpectedly opened)");
    return file.errorString();
}

// A loopback port that never answers. Its listener has an accept queue of one,
// filled by a finished connection nobody accepts; the kernel then drops every
// further SYN, so connection attempts wait without a reply.
class SilentPort
{
public:
    SilentPort()
    {
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof addr;
        auto* name = reinterpret_cast<sockaddr*>(&addr);
        const int listener = open(SOCK_STREAM);
        if (listener < 0 || ::bind(listener, name, length) != 0 || ::listen(listener, 0) != 0 ||
            ::getsockname(listener, name, &length) != 0) {
            _failure = QStringLiteral("no loopback listener: ") +
                       QString::fromLocal8Bit(std::strerror(errno));
            return;
        }
        _port = ntohs(addr.sin_port);
        // A handful of clients is plenty: the first fills the queue, the next stalls.
        for (int i = 0; i < 8; ++i) {
            const int client = open(SOCK_STREAM | SOCK_NONBLOCK);
            if (client < 0)
                break;
            ::connect(client, name, length);
            pollfd done{client, POLLOUT, 0};
            if (::poll(&done, 1, 200) == 0)
                return; // this attempt got no answer within 200 ms: the port is silent
        }
        _failure = QStringLiteral("connection attempts to a full accept queue still complete");
    }
    ~SilentPort()
    {
        for (int fd : _fds)
            ::close(fd);
    }
    SilentPort(const SilentPort&) = delete;
    SilentPort& operator=(const SilentPort&) = delete;

    // Why the port is not silent; empty when it is.
    QString failure() const { return _failure; }
    quint16 port() const { return _port; }

private:
    int open(int type)
    {
        const int fd = ::socket(AF_INET, type | SOCK_CLOEXEC, 0);
        if (fd >= 0)
            _fds.push_back(fd);
        return fd;
    }

    std::vector<int> _fds;
    quint16 _port = 0;
    QString _failure;
};

} // namespace

class TestBcc : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void probeSeries_data();
    void probeSeries();
    void overlappingReports();
    void reportStates();
    void unwritableLog_data();
    void unwritableLog();
    void silentPeer();

private:
    void settle();

    std::unique_ptr<TestTree> _tree;
    std::unique_ptr<MessageCapture> _capture;
};

void TestBcc::init()
{
    _capture = std::make_unique<MessageCapture>();
    _tree = std::make_unique<TestTree>();
    QVERIFY(_tree->isValid());
}

void TestBcc::cleanup()
{
    if (QTest::currentTestFailed())
        settle();
    _capture.reset();
    _tree.reset();
}

// After a failure probes may still be pending, and they write relative to the
// working directory, which leaves the test tree next. Waits until the bcc log and
// the debug output have stood still for longer than one probe and its pause;
// when they never do, the process ends here, inside the tree.
void TestBcc::settle()
{
    const QString path = bccLogPath(*_tree);
    auto activity = [&] { return qMakePair(readLines(path).size(), _capture->messages().size()); };
    QElapsedTimer total;
    total.start();
    QElapsedTimer still;
    still.start();
    auto last = activity();
    while (still.elapsed() < 2500) {
        if (total.elapsed() > 20000) {
            qCritical("bcc probes do not stop; ending the process inside the test tree");
            std::_Exit(EXIT_FAILURE);
        }
        QTest::qWait(50);
        const auto now = activity();
        if (now != last) {
            last = now;
            still.restart();
        }
    }
}

void TestBcc::probeSeries_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<bool>("accepting");

    QTest::newRow("peer accepting on 127.0.0.1") << ipv4 << true;
    QTest::newRow("peer accepting on ::1") << QStringLiteral("::1") << true;
    QTest::newRow("port refusing on 127.0.0.1") << ipv4 << false;
}

// The rows run one after another in one process, so each row after the first
// also shows that a finished series leaves the watch ready for a full new one.
void TestBcc::probeSeries()
{
    QFETCH(QString, address);
    QFETCH(bool, accepting);

    QTcpServer peer;
    const QHostAddress host(address);
    if (!peer.listen(host)) {
        if (host.protocol() == QAbstractSocket::IPv6Protocol)
            QSKIP(qPrintable(QStringLiteral("no IPv6 loopback here: ") + peer.errorString()));
        QFAIL(qPrintable(peer.errorString()));
    }
    const quint16 port = peer.serverPort();
    if (!accepting)
        peer.close();

    UserLog* log = UserLog::logger();
    QVERIFY(log->flush(5000));
    BccLogWatch watch(*_tree);
    const QDateTime from = QDateTime::currentDateTime();
    log->recordBccLog(false, address, port, QStringLiteral("link down"));

    QVERIFY(watch.waitForLines(5, 10000));
    QVERIFY(watch.staysAt(5, 800));
    const QString probe = accepting ? okBody(address) : lostBody(address);
    QCOMPARE(bodies(watch.lines(), from, QDateTime::currentDateTime()),
             QStringList(
                 {brokenBody(address, QStringLiteral("link down")), probe, probe, probe, probe}));
    for (int line = 2; line <= 4; ++line) {
        const qint64 gap = watch.gap(line - 1, line);
        QVERIFY2(gap >= 300 && gap <= 3000, qPrintable(gapText(line - 1, line, gap)));
    }
    QCOMPARE(fileNames(_tree->logDir(QStringLiteral("bccLog"))), QStringList{bccFileName});
}

// Two broken reports in a row share one probe counter. Each probe either counts
// up and arms the next one or, finding 3, resets to 0 and arms nothing:
//   report 1: its probe finds 0, arms timer A;  report 2: its probe finds 1, arms B
//   about 500 ms on: A's probe finds 2 and arms again; B's finds 3, resets, B ends
//   A goes on from 0 and ends at its fourth further probe, which finds 3.
// So 2 report lines and 2 + 2 + 4 = 8 probe lines; which timer fires first at
// 500 ms does not change the count.
void TestBcc::overlappingReports()
{
    const quint16 port = refusedPort();
    QVERIFY(port != 0);
    UserLog* log = UserLog::logger();
    QVERIFY(log->flush(5000));
    BccLogWatch watch(*_tree);
    const QDateTime from = QDateTime::currentDateTime();
    log->recordBccLog(false, ipv4, port, QStringLiteral("first"));
    log->recordBccLog(false, ipv4, port, QStringLiteral("second"));

    QVERIFY(watch.waitForLines(10, 10000));
    QVERIFY(watch.staysAt(10, 800));
    const QString lost = lostBody(ipv4);
    QCOMPARE(bodies(watch.lines(), from, QDateTime::currentDateTime()),
             QStringList({brokenBody(ipv4, QStringLiteral("first")), lost,
                          brokenBody(ipv4, QStringLiteral("second")), lost, lost, lost, lost, lost,
                          lost, lost}));
}

// A host's reports through every link state, with the controller offline at
// start-up, then online, then offline again: bcc lines keep the "-- time --"
// header throughout. The probes aim at whichever report was taken in last,
// which tells a dropped report from a stored one.
void TestBcc::reportStates()
{
    QTcpServer peer;
    QVERIFY(peer.listen(QHostAddress::LocalHost));
    const quint16 accepting = peer.serverPort();
    const quint16 refused = refusedPort();
    QVERIFY(refused != 0);
    UserLog* log = UserLog::logger();
    BccLogWatch watch(*_tree);
    const QDateTime from = QDateTime::currentDateTime();

    // Without an address a report is dropped whole, in either state: no line, no probe.
    log->recordBccLog(true, QString(), accepting, QStringLiteral("x"));
    log->recordBccLog(false, QString(), refused, QStringLiteral("x"));
    QVERIFY(log->flush(5000));
    QVERIFY(!QFile::exists(bccLogPath(*_tree)));

    log->recordBccLog(true, ipv4, accepting, QStringLiteral("up %1 at 100%"));
    log->recordBccLog(true, localhost, refused, QStringLiteral("already up"));
    log->connectedWithController(true);
    log->recordBccLog(false, localhost, refused, QString());
    log->recordBccLog(true, ipv4, accepting, QString());
    log->recordBccLog(true, localhost, refused, QStringLiteral("already up"));
    log->connectedWithController(false);

    QVERIFY(watch.waitForLines(7, 10000));
    QVERIFY(watch.staysAt(7, 800));
    const QString ok = okBody(ipv4);
    QCOMPARE(bodies(watch.lines(), from, QDateTime::currentDateTime()),
             QStringList({connectedBody(ipv4, QStringLiteral("up %1 at 100%")),
                          brokenBody(localhost, QString()), lostBody(localhost),
                          connectedBody(ipv4, QString()), ok, ok, ok}));
}

void TestBcc::unwritableLog_data()
{
    QTest::addColumn<bool>("logDirBlocked");

    // Must be the first row: the file has to be in place before the first
    // logger() call makes the log directories.
    QTest::newRow("a regular file where the log directory must go") << true;
    QTest::newRow("a directory where the bcc log file must go") << false;
}

// Every line, the report's and each probe's, fails on its own with its own
// messages, and the probe series goes on regardless.
void TestBcc::unwritableLog()
{
    QFETCH(bool, logDirBlocked);

    const QString bccDir = _tree->logDir(QStringLiteral("bccLog"));
    QStringList perLine;
    if (logDirBlocked) {
        QVERIFY(makeFile(_tree->root(), QStringLiteral("log")));
        perLine << QStringLiteral("make log dir failed!")
                << QStringLiteral("error, can not make bcc log dir!");
    } else {
        const QString blocked = bccDir + QLatin1Char('/') + bccFileName;
        QVERIFY(QDir().mkpath(blocked));
        perLine << QStringLiteral("open bcc log file error3:") + openErrorText(blocked);
    }
    const quint16 port = refusedPort();
    QVERIFY(port != 0);
    UserLog* log = UserLog::logger();
    QVERIFY(log->flush(5000));
    const int before = _capture->messages().size();
    auto bccMessages = [&] { return _capture->messages().mid(before); };
    log->recordBccLog(false, ipv4, port, QStringLiteral("link down"));

    QStringList expected;
    for (int line = 0; line < 5; ++line)
        expected << perLine;
    QVERIFY(QTest::qWaitFor([&] { return bccMessages().size() >= expected.size(); }, 10000));
    QVERIFY(!QTest::qWaitFor([&] { return bccMessages().size() > expected.size(); }, 800));
    QCOMPARE(bccMessages(), expected);
    QCOMPARE(fileNames(bccDir), QStringList());
}

// Each probe waits its full time for a peer that never answers, then pauses.
void TestBcc::silentPeer()
{
    SilentPort silent;
    if (!silent.failure().isEmpty())
        QSKIP(qPrintable(silent.failure()));
    UserLog* log = UserLog::logger();
    QVERIFY(log->flush(5000));
    BccLogWatch watch(*_tree);
    const QDateTime from = QDateTime::currentDateTime();
    log->recordBccLog(false, ipv4, silent.port(), QStringLiteral("link down"));

    QVERIFY(watch.waitForLines(5, 15000));
    QVERIFY(watch.staysAt(5, 2500));
    const QString lost = lostBody(ipv4);
    QCOMPARE(bodies(watch.lines(), from, QDateTime::currentDateTime()),
             QStringList({brokenBody(ipv4, QStringLiteral("link down")), lost, lost, lost, lost}));
    const qint64 firstWait = watch.gap(0, 1);
    QVERIFY2(firstWait >= 1300 && firstWait <= 3000, qPrintable(gapText(0, 1, firstWait)));
    for (int line = 2; line <= 4; ++line) {
        const qint64 gap = watch.gap(line - 1, line);
        QVERIFY2(gap >= 1800 && gap <= 4000, qPrintable(gapText(line - 1, line, gap)));
    }
    const qint64 series = watch.gap(0, 4);
    QVERIFY2(series >= 5500 && series <= 12000, qPrintable(gapText(0, 4, series)));
}

QTEST_GUILESS_MAIN(TestBcc)
#include "tst_bcc.moc"
