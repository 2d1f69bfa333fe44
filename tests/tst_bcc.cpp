// The bcc connection log as a host sees it: report lines by link state, the
// four-probe series against loopback peers that accept or refuse. One process: each function waits
// until its probes have ended before the next one starts.
#include "testtree.h"

#include <userlog/userlog.h>

#include <QtNetwork/QHostInfo>
#include <QtNetwork/QTcpServer>
#include <QtTest/QtTest>

#include <optional>

class TestBcc : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QVERIFY(_tree.emplace().isValid());
        _log = _tree->path("log/bccLog/bcc_log_file_0.txt"_s);
    }

    // After a failure probes may still be pending, and they would write into the
    // next test's tree: a series ends within 4 probes of 1.5 s and 3 pauses of 0.5 s.
    void cleanup()
    {
        if (QTest::currentTestFailed())
            QTest::qWait(8000);
        _tree.reset();
    }

    // A host's reports through every link state, with the controller offline at
    // start-up, then online, then offline again: the header stays "-- time --".
    // The markers are filled one after the other, so a "%3" in the address takes
    // the message too.
    // Two broken reports in a row share one probe counter: the first one's probe
    // arms timer A, the second's timer B; A's next probe finds 2 and arms again,
    // B's finds 3, resets and ends, and A goes on for four more: 2 + 2 + 4 probes.
    // The probes aim at the last report taken in, which tells a dropped one apart.
    void reportStates()
    {
        if (QHostInfo::fromName("localhost"_s).addresses().isEmpty())
            QSKIP("localhost does not resolve here (a system without /etc/hosts?)");
        QTcpServer peer;
        QVERIFY(peer.listen(QHostAddress::LocalHost));
        const quint16 up = peer.serverPort(), down = 0; // port 0 refuses
        UserLog* log = UserLog::logger();
        log->recordBccLog(true, QString(), up, "x"_s); // no address: nothing at all
        log->recordBccLog(false, QString(), down, "x"_s);
        log->recordBccLog(true, "cam%3"_s, up, "up %1 at 100%"_s);
        log->recordBccLog(true, "localhost"_s, down, "already up"_s);
        log->connectedWithController(true);
        log->recordBccLog(false, "localhost"_s, down, QString());
        log->recordBccLog(false, "localhost"_s, down, "again"_s);
        log->recordBccLog(true, "127.0.0.1"_s, up, QString());
        log->recordBccLog(true, "localhost"_s, down, "already up"_s);
        log->connectedWithController(false);

        const QString lost = "tcp lost connection with localhost"_s;
        const QString ok = "tcp connection with 127.0.0.1 is ok"_s;
        QCOMPARE(waitForBodies(12),
                 QStringList({"bcc connected to camup %1 at 100%, message:up %1 at 100%"_s,
                              "bcc connection with localhost is broken, message:"_s, lost,
                              "bcc connection with localhost is broken, message:again"_s, lost,
                              "bcc connected to 127.0.0.1, message:"_s, ok, ok, ok, ok, ok, ok}) +
                     closingSeries);
    }

    // The rows run one after another in one process, so each row after the first
    // also shows that a finished series leaves the watch ready for a full new one.
    void probeSeries_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<bool>("accepting");
        QTest::newRow("accepting on ::1") << "::1"_s << true;
        QTest::newRow("refusing on 127.0.0.1") << "127.0.0.1"_s << false;
    }

    // A broken report, then four probe lines, the next probe 500 ms after one ended.
    void probeSeries()
    {
        QFETCH(QString, address);
        QFETCH(bool, accepting);
        QTcpServer server;
        if (!server.listen(QHostAddress(address)) && address.contains(':'))
            QSKIP(qPrintable("no IPv6 loopback here: "_s + server.errorString()));
        QVERIFY2(server.isListening(), qPrintable(server.errorString()));
        const quint16 port = server.serverPort();
        if (!accepting)
            server.close();
        UserLog* log = UserLog::logger();
        QVERIFY(log->flush(5000));
        QElapsedTimer clock;
        clock.start();
        log->recordBccLog(false, address, port, "link down"_s);
        QVERIFY(QTest::qWaitFor([&] { return readLines(_log).size() >= 5; }, 60000));
        QVERIFY2(clock.elapsed() >= 1400, qPrintable("series took %1 ms"_s.arg(clock.elapsed())));
        const QString probe = accepting ? "tcp connection with "_s + address + " is ok"_s
                                        : "tcp lost connection with "_s + address;
        QCOMPARE(waitForBodies(5), QStringList({"bcc connection with "_s + address +
                                                    " is broken, message:link down"_s,
                                                probe, probe, probe, probe}) +
                                       closingSeries);
    }

private:
    // The log's lines without their "-- <time> -- " headers, once it holds count of them
    // and then a closing series, whose probe timers run after any that the earlier series
    // still had armed: a line too many shows up before the closing series ends.
    QStringList waitForBodies(int count)
    {
        const auto holds = [this](int lines) {
            return QTest::qWaitFor([&] { return readLines(_log).size() >= lines; }, 60000);
        };
        if (holds(count)) {
            UserLog::logger()->recordBccLog(false, "127.0.0.1"_s, 0, "closing"_s);
            holds(count + closingSeries.size());
        }
        return withoutTimes(readLines(_log))
            .replaceInStrings(QRegularExpression("^-- T -- "_s), {});
    }

    const QStringList closingSeries =
        QStringList{"bcc connection with 127.0.0.1 is broken, message:closing"_s} +
        QVector<QString>(4, "tcp lost connection with 127.0.0.1"_s).toList();

    std::optional<TestTree> _tree;
    QString _log;
};

QTEST_GUILESS_MAIN(TestBcc)
#include "tst_bcc.moc"
