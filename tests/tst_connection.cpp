// Connection state, banners and the writer's slot interface, white-box.
#include "testtree.h"
#include "tst_logfiles_support.h"
#include "userlog/userlogthread.h"
#include "userlog/writer/userlogwriter.h"

#include <QtCore/QDir>
#include <QtCore/QMetaMethod>
#include <QtTest/QtTest>

namespace {

// The lines that kinds stand for, times shown as "T": S start-up, C connected
// and L lost-connection banner; E and e the entry that op 'e' writes, with the
// online and the offline header.
QStringList expected(const QString& kinds)
{
    const QString separator = "//---------------------------------"_s;
    const QHash<QChar, QString> text{
        {QLatin1Char('S'), "**T** <user log> <log> krn user log systerm booted up!"_s},
        {QLatin1Char('C'), "-- T -- <user log> <log> krn system connected with controller!"_s},
        {QLatin1Char('L'), "**T** <user log> <log> krn system lost connection with controller!"_s},
        {QLatin1Char('E'), "-- T -- <B> <log> x"_s},
        {QLatin1Char('e'), "**T** <B> <log> x"_s}};
    QStringList lines;
    for (const QChar kind : kinds) {
        if (kind == QLatin1Char('E') || kind == QLatin1Char('e'))
            lines << text[kind];
        else
            lines << separator << text[kind] << separator;
    }
    return lines;
}

// A log file or directory, relative to the working directory as the writer
// names it; "<today>" stands for today's date.
QString logFile(const QString& path)
{
    return "../../log/"_s + QString(path).replace("<today>"_s, today());
}

const QString onUser = "online/user_log_file_0.txt"_s;
const QString onPrint = "useronline/user_print_file_0_<today>.txt"_s;
const QString offUser = "offline/user_print_file_off"_s;
const QString offPrint = "offline/user_print_file_off_0_<today>.txt"_s;

QStringList contents(const QString& path)
{
    return withoutTimes(readLines(logFile(path)));
}

// c connect, l loss, n the no-argument form, C and S the two-argument forms
// (true, true) and (false, true), e an entry "x" of level 6, a print entry.
void apply(UserLogWriter& writer, const QString& ops)
{
    for (const QChar op : ops) {
        const char o = op.toLatin1();
        if (o == 'e')
            writer.receiveUserLogs("B"_s, "T"_s, "x"_s, 6);
        else if (o == 'n')
            writer.setSystermConnectState();
        else
            writer.setSystermConnectState(o == 'c' || o == 'C', o == 'C' || o == 'S');
    }
}

QString openError(const QString& path)
{
    QFile file(logFile(path));
    file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text);
    return file.errorString();
}

} // namespace

class TestConnection : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { _tree.reset(); }
    void startUpNames_data();
    void startUpNames();
    void transitions_data();
    void transitions();
    void bannerTimeIsTheSwitchTime();
    void settingReadAtConnectNotAtLoss();
    void failures_data();
    void failures();
    void printDirectoryCannotBeMadeAtConnect();
    void failedLossThenReconnect();
    void slotIndexes_data();
    void slotIndexes();
    void invokeByIndex();
    void logThread();

private:
    std::unique_ptr<TestTree> _tree;
};

void TestConnection::init()
{
    _tree.reset(new TestTree);
    QVERIFY(_tree->isValid());
}

void TestConnection::startUpNames_data()
{
    columns({"setting", "name"});
    row("no settings file: default", "-", "user_print_file");
    row("custom name", "cell7", "cell7");
    row("empty custom name", "", "");
}

void TestConnection::startUpNames()
{
    QFETCH(QString, setting);
    QFETCH(QString, name);
    if (setting != "-"_s)
        _tree->writeCustomLogName(setting);
    MessageCapture capture;
    UserLogWriter writer;
    QCOMPARE(capture.messages(), QStringList{"make log dir succeded!"_s});
    const QString printName = name + "_off_0_"_s + today() + ".txt"_s;
    QCOMPARE(fileNames(logFile("offline"_s)), (QStringList{name + "_off"_s, printName}));
    QCOMPARE(contents("offline/"_s + name + "_off"_s), expected("S"_s));
    QCOMPARE(contents("offline/"_s + printName), expected("S"_s));
    QCOMPARE(QDir(logFile(QString())).entryList(QDir::Dirs | QDir::NoDotAndDotDot),
             QStringList{"offline"_s});

    writer.setSystermConnectState(true);
    QCOMPARE(fileNames(logFile("useronline"_s)), QStringList{name + "_0_"_s + today() + ".txt"_s});
    QCOMPARE(fileNames(logFile("online"_s)), QStringList{"user_log_file_0.txt"_s});
}

void TestConnection::transitions_data()
{
    columns({"ops", "onlineUser", "onlinePrint", "offlineUser", "offlinePrint"});
    row("start-up", "", "", "", "S", "S");
    row("not connected after start-up: ignored", "l", "", "", "S", "S");
    row("connect", "c", "C", "C", "S", "S");
    row("repeated connect: ignored", "cc", "C", "C", "S", "S");
    row("loss: banner in the online files", "cl", "CL", "CL", "S", "S");
    row("no-argument form is a loss", "cn", "CL", "CL", "S", "S");
    row("repeated loss: ignored", "cll", "CL", "CL", "S", "S");
    row("after a loss: user log offline, print file stays", "cle", "CL", "CLe", "Se", "S");
    row("reconnect", "clce", "CLCE", "CLCE", "S", "S");
    row("(true, true) while online", "cC", "CC", "CC", "S", "S");
    row("(false, true) while online", "cSe", "C", "C", "SSe", "SSe");
}

void TestConnection::transitions()
{
    QFETCH(QString, ops);
    QFETCH(QString, onlineUser);
    QFETCH(QString, onlinePrint);
    QFETCH(QString, offlineUser);
    QFETCH(QString, offlinePrint);
    UserLogWriter writer;
    apply(writer, ops);
    const QString files[] = {onUser, onPrint, offUser, offPrint};
    const QString kinds[] = {onlineUser, onlinePrint, offlineUser, offlinePrint};
    for (int i = 0; i < 4; ++i) {
        QVERIFY2(QFile::exists(logFile(files[i])) == !kinds[i].isEmpty(), qPrintable(files[i]));
        QCOMPARE(contents(files[i]), expected(kinds[i]));
    }
}

void TestConnection::bannerTimeIsTheSwitchTime()
{
    // The same instant in both files, taken between the call's start and end.
    const auto check = [](const QString& userLog, const QString& printFile, qint64 before) {
        const QString line = readLines(logFile(userLog)).value(1);
        QCOMPARE(readLines(logFile(printFile)).value(1), line);
        const QDateTime time = QDateTime::fromString(line.mid(line.startsWith("**"_s) ? 2 : 3, 19),
                                                     "yyyy-MM-dd hh:mm:ss"_s);
        QVERIFY2(time.isValid(), qPrintable(line));
        QVERIFY(time.toSecsSinceEpoch() >= before);
        QVERIFY(time.toSecsSinceEpoch() <= QDateTime::currentSecsSinceEpoch());
    };
    const qint64 beforeStartUp = QDateTime::currentSecsSinceEpoch();
    UserLogWriter writer;
    check(offUser, offPrint, beforeStartUp);
    QThread::msleep(1100); // a stale stamp would now fall before the window
    const qint64 beforeConnect = QDateTime::currentSecsSinceEpoch();
    writer.setSystermConnectState(true);
    check(onUser, onPrint, beforeConnect);
}

void TestConnection::settingReadAtConnectNotAtLoss()
{
    _tree->writeCustomLogName("alpha"_s);
    UserLogWriter writer;
    _tree->writeCustomLogName("beta22"_s); // names of other lengths: no stale settings cache
    writer.setSystermConnectState(true);
    _tree->writeCustomLogName("gam"_s);
    apply(writer, "le"_s);
    QCOMPARE(contents("useronline/beta22_0_<today>.txt"_s), expected("CLe"_s));
    QCOMPARE(contents("offline/alpha_off"_s), expected("Se"_s));

    apply(writer, "cS"_s);
    QCOMPARE(contents("useronline/gam_0_<today>.txt"_s), expected("C"_s));
    QCOMPARE(contents("offline/gam_off_0_<today>.txt"_s), expected("S"_s));
    QCOMPARE(contents("offline/alpha_off"_s), expected("SeS"_s));
}

void TestConnection::failures_data()
{
    columns({"blocker"});
    row("user-log directory cannot be made", "log dir");
    row("print file cannot be opened", "print file");
    row("user-log file cannot be opened", "user-log file");
}

void TestConnection::failures()
{
    QFETCH(QString, blocker);
    const QString error = "open log file error1(%1):%2"_s;
    QStringList messages;
    if (blocker == "log dir"_s) {
        QVERIFY(makeFile(_tree->root(), "log"_s));
        messages << "make log dir failed!"_s
                 << "error, can not make log dir!"_s;
    } else if (blocker == "print file"_s) {
        QVERIFY(QDir().mkpath(logFile(offPrint)));
        messages << error.arg(logFile(offPrint), openError(offPrint));
    } else { // the user-log path is absolute
        QVERIFY(QDir().mkpath(logFile(offUser)));
        messages << error.arg(QFileInfo(logFile(offUser)).absoluteFilePath(), openError(offUser));
    }
    MessageCapture capture;
    UserLogWriter writer;
    QCOMPARE(capture.messages(), messages);
    QCOMPARE(contents(offUser) + contents(offPrint), QStringList()); // no banner anywhere
    if (blocker == "user-log file"_s)
        QVERIFY(!QFile::exists(logFile(offPrint)));
    if (blocker == "print file"_s) // opened before the print file, closed untouched
        QVERIFY(QFileInfo(logFile(offUser)).isFile());
}

void TestConnection::printDirectoryCannotBeMadeAtConnect()
{
    UserLogWriter writer;
    // A dangling link: no directory there, and none can be made.
    QVERIFY(QFile::link(_tree->root() + "/nowhere"_s, logFile("useronline"_s)));
    MessageCapture capture;
    writer.setSystermConnectState(true);
    QCOMPARE(capture.messages(), (QStringList{"make log dir succeded!"_s, "make log dir failed!"_s,
                                              "error, can not make log dir!"_s}));
    QCOMPARE(fileNames(logFile("online"_s)), QStringList());
}

void TestConnection::failedLossThenReconnect()
{
    UserLogWriter writer;
    writer.setSystermConnectState(true);
    QVERIFY(QFile::remove(logFile(onPrint)) && QDir().mkpath(logFile(onPrint)));
    {
        MessageCapture capture;
        writer.setSystermConnectState(false);
        QCOMPARE(capture.messages(), QStringList{"open log file error1(%1):%2"_s.arg(
                                         logFile(onPrint), openError(onPrint))});
        QVERIFY(QDir().rmdir(logFile(onPrint)));
    }
    MessageCapture capture;
    writer.setSystermConnectState(false); // ignored: the writer counts as offline
    QCOMPARE(capture.messages(), QStringList());
    QVERIFY(!QFile::exists(logFile(onPrint)));
    apply(writer, "e"_s); // still the online user log, with the offline header
    QCOMPARE(contents(onUser), expected("Ce"_s));
    apply(writer, "ce"_s);
    QCOMPARE(contents(onUser), expected("CeCE"_s));
    QCOMPARE(contents(onPrint), expected("eCE"_s));
    QCOMPARE(contents(offUser), expected("S"_s));
}

void TestConnection::slotIndexes_data()
{
    columns({"index"}); // the row name is the signature
    row("setSystermConnectState(bool,bool)", "0");
    row("setSystermConnectState(bool)", "1");
    row("setSystermConnectState()", "2");
    row("receiveUserLogs(QString,QString,QString,int)", "3");
    row("receiveUserLogs(QString,QString,QString,UserLogLevel)", "4");
    row("receiveUserLogs(QList<LogInformation>)", "5");
    row("receiveBccLogs(bool,QString,quint16,QString)", "6");
    row("deleteOldestFiles(const QString&,int)", "7");
    row("checkTcpState()", "8");
}

void TestConnection::slotIndexes()
{
    QFETCH(QString, index);
    const QMetaObject& meta = UserLogWriter::staticMetaObject;
    QCOMPARE(meta.methodCount() - meta.methodOffset(), 9);
    // The lookup compares argument types, so quint16 finds the slot that moc lists with ushort.
    const int found = meta.indexOfSlot(QMetaObject::normalizedSignature(QTest::currentDataTag()));
    QCOMPARE(found, meta.methodOffset() + index.toInt());
    QCOMPARE(meta.method(found).access(),
             index == "8"_s ? QMetaMethod::Protected : QMetaMethod::Public);
}

void TestConnection::invokeByIndex()
{
    UserLogWriter writer;
    const auto method = [](int index) {
        return UserLogWriter::staticMetaObject.method(
            UserLogWriter::staticMetaObject.methodOffset() + index);
    };
    QVERIFY(method(1).invoke(&writer, Qt::DirectConnection, Q_ARG(bool, true)));
    QCOMPARE(contents(onUser), expected("C"_s));
    QVERIFY(method(2).invoke(&writer, Qt::DirectConnection));
    QCOMPARE(contents(onUser), expected("CL"_s));
    QVERIFY(method(0).invoke(&writer, Qt::DirectConnection, Q_ARG(bool, false), Q_ARG(bool, true)));
    QCOMPARE(contents(offUser), expected("SS"_s));
}

void TestConnection::logThread()
{
    UserLogThread thread;
    QCOMPARE(thread.objectName(), "UserLogThread"_s);
    thread.start();
    QVERIFY(!thread.wait(100)); // run() serves an event loop until told to quit
    thread.termaniteLogThread();
    QVERIFY(thread.wait(5000));
}

QTEST_GUILESS_MAIN(TestConnection)
#include "tst_connection.moc"
