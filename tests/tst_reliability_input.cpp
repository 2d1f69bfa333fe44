// Hostile input through the public API: huge messages and batches, NUL and
// unpaired surrogates, extreme levels, empty fields, odd bcc addresses and odd
// custom print names. Each input is written exactly as the rules say or refused
// with its message, and the writer goes on working afterwards. The bytes on
// disk are compared, so the locale's encoding must be UTF-8.
#include <userlog/userlog.h>

#include "testtree.h"

#include <QtCore/QDate>
#include <QtCore/QDir>
#include <QtCore/QRegularExpression>
#include <QtCore/QTextCodec>
#include <QtNetwork/QTcpServer>
#include <QtTest/QtTest>

#include <climits>
#include <memory>

namespace {

QString today()
{
    return QDate::currentDate().toString(QStringLiteral("yyyy-MM-dd"));
}

// The file's lines as raw bytes, without their line feeds.
QList<QByteArray> rawLines(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QList<QByteArray> lines = file.readAll().split('\n');
    lines.removeLast();
    return lines;
}

// NUL, a lone high and a lone low surrogate, and how UTF-8 output shows them.
const QString oddText = QStringLiteral("a") + QChar(0) + QStringLiteral("b") + QChar(0xD800) +
                        QStringLiteral("c") + QChar(0xDC00) + QStringLiteral("d");
const QByteArray oddBytes("a\0b?c?d", 7);

// A bcc line without its header of the writer's clock, "-- yyyy-MM-dd hh:mm:ss -- ".
QByteArray bccText(const QByteArray& line)
{
    static const QRegularExpression header(
        QStringLiteral("^-- \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d -- $"));
    if (!header.match(QString::fromLatin1(line.left(26))).hasMatch())
        return "<no time header> " + line;
    return line.mid(26);
}

} // namespace

class ReliabilityInput : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void hugeMessage();
    void hugeBatch();
    void oddCharacters_data();
    void oddCharacters();
    void levels_data();
    void levels();
    void emptyFields();
    void bccAddresses_data();
    void bccAddresses();
    void oddCharactersInBccReport();
    void customLogName_data();
    void customLogName();

private:
    // The library in a fresh tree, connected: entries go to log/online, print
    // lines to log/useronline. Made on first use, once per process.
    UserLog* connectedLogger();
    QString path(const QString& relative) const { return _tree->root() + '/' + relative; }
    QString userLog(int index) const
    {
        return path(QStringLiteral("log/online/user_log_file_%1.txt").arg(index));
    }
    QString printFile(int index) const
    {
        return path(
            QStringLiteral("log/useronline/user_print_file_%1_%2.txt").arg(index).arg(today()));
    }
    // Logs a plain entry and checks that it became the last line of the user log.
    bool writesNormally(int userLogIndex);

    std::unique_ptr<TestTree> _tree;
    std::unique_ptr<MessageCapture> _capture;
};

void ReliabilityInput::initTestCase()
{
    QVERIFY2(QTextCodec::codecForLocale()->mibEnum() == 106, "run with LC_ALL=C.UTF-8");
}

void ReliabilityInput::cleanupTestCase()
{
    _capture.reset();
    _tree.reset();
}

UserLog* ReliabilityInput::connectedLogger()
{
    if (!_tree) {
        _tree = std::make_unique<TestTree>();
        _capture = std::make_unique<MessageCapture>();
        UserLog::logger()->connectedWithController(true);
        UserLog::logger()->flush(60000);
    }
    return UserLog::logger();
}

bool ReliabilityInput::writesNormally(int userLogIndex)
{
    UserLog* log = connectedLogger();
    log->recordLog(QStringLiteral("B"), QStringLiteral("T"), QStringLiteral("still here"), 2);
    const QList<QByteArray> lines =
        log->flush(60000) ? rawLines(userLog(userLogIndex)) : QList<QByteArray>();
    return !lines.isEmpty() && lines.last() == "-- T -- <B> <info> still here";
}

void ReliabilityInput::hugeMessage()
{
    UserLog* log = connectedLogger();
    const QString message = QString(16 << 20, QLatin1Char('x')) + QStringLiteral("end");
    log->recordLog(QStringLiteral("B"), QStringLiteral("T"), message, 6);
    QVERIFY(log->flush(60000));
    const QByteArray line = "-- T -- <B> <log> " + message.toLatin1();
    QCOMPARE(rawLines(userLog(0)).value(3), line);
    QCOMPARE(rawLines(printFile(0)).value(3), line);
    // Both files are full now: the next entry starts the next file of each.
    log->recordLog(QStringLiteral("B"), QStringLiteral("T"), QStringLiteral("next"), 6);
    QVERIFY(log->flush(60000));
    QCOMPARE(rawLines(userLog(1)), QList<QByteArray>{"-- T -- <B> <log> next"});
    QCOMPARE(rawLines(printFile(1)), QList<QByteArray>{"-- T -- <B> <log> next"});
}

void ReliabilityInput::hugeBatch()
{
    UserLog* log = connectedLogger();
    QList<LogInformation> batch;
    for (int i = 0; i < 100000; ++i)
        batch.append({QStringLiteral("T"), QStringLiteral("B"), QString::number(i), 2 + i % 4});
    log->recordLog(batch);
    QVERIFY(log->flush(120000));
    // The whole batch goes into the files chosen at its start, past the size limit.
    static const char* const tags[] = {"info", "warn", "erro", "printinfo"};
    QList<QByteArray> lines;
    QList<QByteArray> printed;
    for (int i = 0; i < 100000; ++i) {
        lines.append("-- T -- <B> <" + QByteArray(tags[i % 4]) + "> " + QByteArray::number(i));
        if (i % 4 == 3)
            printed.append(lines.last());
    }
    QCOMPARE(rawLines(userLog(0)).mid(3), lines);
    QCOMPARE(rawLines(printFile(0)).mid(3), printed);
    QVERIFY(writesNormally(1));
}

void ReliabilityInput::oddCharacters_data()
{
    QTest::addColumn<int>("field");
    QTest::addColumn<bool>("batch");
    const char* const fields[] = {"block", "time", "message"};
    for (int field = 0; field < 3; ++field) {
        QTest::addRow("in the %s of a single entry", fields[field]) << field << false;
        QTest::addRow("in the %s of a batch entry", fields[field]) << field << true;
    }
}

void ReliabilityInput::oddCharacters()
{
    QFETCH(int, field);
    QFETCH(bool, batch);
    UserLog* log = connectedLogger();
    const QString block = field == 0 ? oddText : QStringLiteral("B");
    const QString time = field == 1 ? oddText : QStringLiteral("T");
    const QString message = field == 2 ? oddText : QStringLiteral("M");
    // Print entries, so that the print file's copy is compared too.
    if (batch)
        log->recordLog(QList<LogInformation>{{time, block, message, 5}});
    else
        log->recordLog(block, time, message, 6);
    QVERIFY(log->flush(60000));
    const auto bytes = [](const QString& text) {
        return text == oddText ? oddBytes : text.toLatin1();
    };
    const QByteArray expected = "-- " + bytes(time) + " -- <" + bytes(block) + "> <" +
                                (batch ? "printinfo" : "log") + "> " + bytes(message);
    QCOMPARE(rawLines(userLog(0)).last(), expected);
    QCOMPARE(rawLines(printFile(0)).last(), expected);
}

void ReliabilityInput::levels_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("singleTag");
    QTest::addColumn<QString>("batchTag");
    QTest::addColumn<int>("printedBy"); // 0 neither form, 1 the single entry, 2 the batch entry
    QTest::newRow("INT_MIN") << INT_MIN << "log"
                             << "log" << 0;
    QTest::newRow("INT_MIN + 1") << INT_MIN + 1 << "log"
                                 << "log" << 0;
    QTest::newRow("-1") << -1 << "log"
                        << "log" << 0;
    QTest::newRow("1") << 1 << "log"
                       << "log" << 0;
    QTest::newRow("2") << 2 << "info"
                       << "info" << 0;
    QTest::newRow("4") << 4 << "erro"
                       << "erro" << 0;
    QTest::newRow("5") << 5 << "log"
                       << "printinfo" << 2;
    QTest::newRow("6") << 6 << "log"
                       << "log" << 1;
    QTest::newRow("7") << 7 << "log"
                       << "log" << 0;
    QTest::newRow("INT_MAX - 1") << INT_MAX - 1 << "log"
                                 << "log" << 0;
    QTest::newRow("INT_MAX") << INT_MAX << "log"
                             << "log" << 0;
    // The low bytes of these equal levels that carry meaning.
    QTest::newRow("0x100 + 6") << 0x100 + 6 << "log"
                               << "log" << 0;
    QTest::newRow("0x10000 + 5") << 0x10000 + 5 << "log"
                                 << "log" << 0;
}

void ReliabilityInput::levels()
{
    QFETCH(int, level);
    QFETCH(QString, singleTag);
    QFETCH(QString, batchTag);
    QFETCH(int, printedBy);
    UserLog* log = connectedLogger();
    const int printedBefore = rawLines(printFile(0)).size();
    log->recordLog(QStringLiteral("B"), QStringLiteral("T"), QStringLiteral("single"), level);
    log->recordLog(QList<LogInformation>{
        {QStringLiteral("T"), QStringLiteral("B"), QStringLiteral("batch"), level}});
    QVERIFY(log->flush(60000));
    const QByteArray single = "-- T -- <B> <" + singleTag.toLatin1() + "> single";
    const QByteArray batch = "-- T -- <B> <" + batchTag.toLatin1() + "> batch";
    QCOMPARE(rawLines(userLog(0)).mid(rawLines(userLog(0)).size() - 2),
             (QList<QByteArray>{single, batch}));
    const QList<QByteArray> printed = rawLines(printFile(0)).mid(printedBefore);
    QCOMPARE(printed, printedBy == 0 ? QList<QByteArray>{}
                                     : QList<QByteArray>{printedBy == 1 ? single : batch});
}

void ReliabilityInput::emptyFields()
{
    UserLog* log = connectedLogger();
    QVERIFY(log->flush(60000));
    const int messagesBefore = _capture->messages().size();
    log->recordLog(QString(), QString(), QString(), 6);
    log->recordLog(QList<LogInformation>{});
    log->recordLog(QString(), QString(), QStringLiteral(" "), 6);
    log->recordLog(QList<LogInformation>{{QString(), QString(), QString(), 5}});
    log->recordBccLog(true, QString(), 0, QStringLiteral("no address"));
    log->recordBccLog(false, QString(), 0, QStringLiteral("no address"));
    log->recordBccLog(true, QStringLiteral("127.0.0.1"), 0, QString());
    QVERIFY(log->flush(60000));
    QCOMPARE(_capture->messages().mid(messagesBefore),
             (QStringList{"no log information to write!", "received empty log list!",
                          "make log dir succeded!"})); // the bcc log's, at its first line
    const QList<QByteArray> expected{"--  -- <> <log>  ", "--  -- <> <printinfo> "};
    QCOMPARE(rawLines(userLog(0)).mid(3), expected);
    QCOMPARE(rawLines(printFile(0)).mid(3), expected);
    const QList<QByteArray> bcc = rawLines(path(QStringLiteral("log/bccLog/bcc_log_file_0.txt")));
    QCOMPARE(bcc.size(), 1);
    QVERIFY2(bcc.first().endsWith(" -- bcc connected to 127.0.0.1, message:"), bcc.first());
    QVERIFY(writesNormally(0));
}

void ReliabilityInput::bccAddresses_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<int>("port");
    for (const QString& address : {QString(), QStringLiteral("localhost"),
                                   QStringLiteral("127.0.0.1"), QStringLiteral("::1")}) {
        for (int port : {0, 65535})
            QTest::addRow("%s port %d", address.isEmpty() ? "empty address" : qPrintable(address),
                          port)
                << address << port;
    }
}

// A broken report is logged and probed four times; the peer listens on port
// 65535 and nothing can listen on port 0. The connected report after the series
// is logged without a probe. An empty address is dropped without a word.
void ReliabilityInput::bccAddresses()
{
    QFETCH(QString, address);
    QFETCH(int, port);
    UserLog* log = connectedLogger();
    QTcpServer peer;
    if (port != 0 && !peer.listen(QHostAddress::Any, quint16(port)))
        QSKIP("port 65535 is taken on this machine");
    const QString bccLog = path(QStringLiteral("log/bccLog/bcc_log_file_0.txt"));
    const int before = rawLines(bccLog).size();
    const int messagesBefore = _capture->messages().size();
    log->recordBccLog(false, address, quint16(port), QStringLiteral("down"));
    if (address.isEmpty()) {
        log->recordBccLog(true, address, quint16(port), QStringLiteral("up"));
        QVERIFY(log->flush(60000));
        QCOMPARE(rawLines(bccLog).size(), before);
        QCOMPARE(_capture->messages().size(), messagesBefore);
        return;
    }
    QTRY_COMPARE_WITH_TIMEOUT(rawLines(bccLog).size(), before + 5, 15000);
    log->recordBccLog(true, address, quint16(port), QStringLiteral("up"));
    QVERIFY(log->flush(60000));
    const QList<QByteArray> lines = rawLines(bccLog).mid(before);
    QCOMPARE(lines.size(), 6);
    const QString probe = port == 0 ? QStringLiteral("tcp lost connection with %1")
                                    : QStringLiteral("tcp connection with %1 is ok");
    const QStringList expected{QStringLiteral("bcc connection with %1 is broken, message:down"),
                               probe,
                               probe,
                               probe,
                               probe,
                               QStringLiteral("bcc connected to %1, message:up")};
    for (int i = 0; i < lines.size(); ++i)
        QCOMPARE(bccText(lines.at(i)), expected.at(i).arg(address).toUtf8());
    QVERIFY(writesNormally(0));
}

void ReliabilityInput::oddCharactersInBccReport()
{
    UserLog* log = connectedLogger();
    log->recordBccLog(true, oddText, 1, oddText);
    QVERIFY(log->flush(60000));
    const QList<QByteArray> lines = rawLines(path(QStringLiteral("log/bccLog/bcc_log_file_0.txt")));
    QCOMPARE(lines.size(), 1);
    QCOMPARE(bccText(lines.first()), "bcc connected to " + oddBytes + ", message:" + oddBytes);
    QVERIFY(writesNormally(0));
}

void ReliabilityInput::customLogName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("made");       // a directory made before the start, or empty
    QTest::addColumn<QString>("offlineDir"); // where the custom files land, from the tree's root
    QTest::addColumn<QString>("onlineDir");
    QTest::addColumn<QString>("openError"); // the error text when the files cannot be opened
    const QString longName(200, QLatin1Char('n'));
    const QString tooLong(300, QLatin1Char('n'));
    QTest::newRow("empty") << QString() << QString() << "log/offline/"
                           << "log/useronline/" << QString();
    QTest::newRow("long") << longName << QString() << "log/offline/"
                          << "log/useronline/" << QString();
    QTest::newRow("too-long") << tooLong << QString() << "log/offline/"
                              << "log/useronline/"
                              << "File name too long";
    QTest::newRow("subdirectory") << "cell/arm"
                                  << "cell"
                                  << "log/offline/cell/"
                                  << "log/useronline/cell/" << QString();
    QTest::newRow("missing-subdirectory") << "cell/arm" << QString() << "log/offline/cell/"
                                          << "log/useronline/cell/"
                                          << "No such file or directory";
    QTest::newRow("parent") << "../up" << QString() << "log/"
                            << "log/" << QString();
}

// The custom name is used as it stands: "/" leads into a subdirectory of the
// log directory, ".." out of it, and a name the file system refuses makes
// every open of those files fail with its message.
void ReliabilityInput::customLogName()
{
    QFETCH(QString, name);
    QFETCH(QString, made);
    QFETCH(QString, offlineDir);
    QFETCH(QString, onlineDir);
    QFETCH(QString, openError);
    if (_tree)
        QSKIP("each row needs a process of its own: run it as customLogName:<row>");
    _tree = std::make_unique<TestTree>();
    _capture = std::make_unique<MessageCapture>();
    _tree->writeCustomLogName(name);
    if (!made.isEmpty()) {
        QVERIFY(QDir().mkpath(path(QStringLiteral("log/offline/") + made)));
        QVERIFY(QDir().mkpath(path(QStringLiteral("log/useronline/") + made)));
    }
    UserLog* log = UserLog::logger();
    log->recordLog(QStringLiteral("B"), QStringLiteral("T"), QStringLiteral("offline"), 6);
    log->connectedWithController(true);
    log->recordLog(QStringLiteral("B"), QStringLiteral("T"), QStringLiteral("online"), 6);
    QVERIFY(log->flush(60000));

    const QString base = QFileInfo(name).fileName();
    const QString offlineLog = path(offlineDir + base + QStringLiteral("_off"));
    const QString offlinePrint = offlineDir + base + QStringLiteral("_off_0_") + today() + ".txt";
    const QString onlinePrint = onlineDir + base + QStringLiteral("_0_") + today() + ".txt";
    if (openError.isEmpty()) {
        QCOMPARE(rawLines(offlineLog).value(3), QByteArray("**T** <B> <log> offline"));
        QCOMPARE(rawLines(path(offlinePrint)).value(3), QByteArray("**T** <B> <log> offline"));
        QCOMPARE(rawLines(path(onlinePrint)).value(3), QByteArray("-- T -- <B> <log> online"));
        QCOMPARE(rawLines(userLog(0)).value(3), QByteArray("-- T -- <B> <log> online"));
    } else {
        const QStringList expected{
            "make log dir succeded!",
            QStringLiteral("open log file error1(%1):%2")
                .arg(QDir::cleanPath(offlineLog), openError),
            "open log file error2:" + openError,
            "make log dir succeded!",
            QStringLiteral("open log file error1(../../%1):%2").arg(onlinePrint, openError),
            "open log file error3:" + openError};
        QCOMPARE(_capture->messages(), expected);
        QCOMPARE(rawLines(userLog(0)).size(), 0);
    }
    // Whatever the name, the bcc log does not depend on it.
    log->recordBccLog(true, QStringLiteral("127.0.0.1"), 1, QStringLiteral("up"));
    QVERIFY(log->flush(60000));
    QCOMPARE(rawLines(path(QStringLiteral("log/bccLog/bcc_log_file_0.txt"))).size(), 1);
}

QTEST_GUILESS_MAIN(ReliabilityInput)
#include "tst_reliability_input.moc"
