// Writer events driven directly: the banners of each connection transition, the
// custom print name, entries and batches, the retention limits, and one table of
// faults that drop an event with its message while the next event is written.
#include "testtree.h"
#include "userlog/writer/logfiles.h"
#include "userlog/writer/userlogwriter.h"

#include <QtTest/QtTest>

#include <memory>
#include <optional>

namespace {

const QString separator = "//---------------------------------"_s;
const QStringList startUp{separator, "**T** <user log> <log> krn user log systerm booted up!"_s,
                          separator};
const QStringList connected{
    separator, "-- T -- <user log> <log> krn system connected with controller!"_s, separator};
const QStringList lost{
    separator, "**T** <user log> <log> krn system lost connection with controller!"_s, separator};
// The entry that Step::Entry writes, with the online and the offline header.
const QStringList entryOnline{"-- T -- <B> <log> x"_s};
const QStringList entryOffline{"**T** <B> <log> x"_s};

enum class Step
{
    Connect,              // setSystermConnectState(true)
    Lose,                 // setSystermConnectState(false)
    LoseNoArguments,      // setSystermConnectState()
    ConnectFirstTime,     // setSystermConnectState(true, true)
    StartUpAgain,         // setSystermConnectState(false, true)
    Entry,                // a single entry "x" of level 6, copied to the print file
    BlockOnlinePrintFile, // a directory where the online print file is
    UnblockOnlinePrintFile,
};

// The four files of the transitions, below ../../log; "*" stands for the date.
const QString onlineUserLog = "online/user_log_file_0.txt"_s;
const QString onlinePrintFile = "useronline/user_print_file_0_*.txt"_s;
const QString offlineUserLog = "offline/user_print_file_off"_s;
const QString offlinePrintFile = "offline/user_print_file_off_0_*.txt"_s;

// A log file as the writer names it below ../../log, its date found on disk.
QString logFile(const QString& path)
{
    return anyDay("../../log/"_s + path);
}

QStringList contents(const QString& path)
{
    return withoutTimes(readLines(logFile(path)));
}

void apply(UserLogWriter& writer, const QVector<Step>& steps)
{
    QString blocked;
    for (const Step step : steps) {
        switch (step) {
        case Step::Connect:
        case Step::Lose:
            writer.setSystermConnectState(step == Step::Connect);
            break;
        case Step::LoseNoArguments:
            writer.setSystermConnectState();
            break;
        case Step::ConnectFirstTime:
        case Step::StartUpAgain:
            writer.setSystermConnectState(step == Step::ConnectFirstTime, true);
            break;
        case Step::Entry:
            writer.receiveUserLogs("B"_s, "T"_s, "x"_s, 6);
            break;
        case Step::BlockOnlinePrintFile:
            blocked = logFile(onlinePrintFile);
            QVERIFY(QFile::remove(blocked) && QDir().mkpath(blocked));
            break;
        case Step::UnblockOnlinePrintFile:
            QVERIFY(QDir().rmdir(blocked));
            break;
        }
    }
}

// A connected writer whose log tree was removed after the connect (unless told
// otherwise), so each file holds only what the test writes next.
struct FreshWriter
{
    explicit FreshWriter(bool connected = true)
    {
        if (connected)
            writer.setSystermConnectState(true);
        QDir(tree.path("log"_s)).removeRecursively();
    }

    void entry(const QString& message, int level = 6)
    {
        writer.receiveUserLogs("B"_s, "T"_s, message, level);
    }
    QString printFile(int index = 0) const
    {
        return anyDay(tree.path("log/useronline/user_print_file_%1_*.txt"_s.arg(index)));
    }
    TestTree tree;
    UserLogWriter writer;
    const QString userLog = tree.path("log/online/user_log_file_0.txt"_s);
};

// Leaves the file about 10 bytes short of full, in one line of '#'.
bool fill(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Text) &&
           file.write(QByteArray(int(logfiles::maxLogFileSize - 11), '#') + '\n') > 0;
}

// A fault row's event, and how its blocked path is put in the writer's way.
using Event = void (*)(FreshWriter&);
enum class Block
{
    WithFile,
    WithDirectory,
    WithDanglingLink,
    ByHoldingIt, // the file held open without sharing, as a viewer may
};

void singleEntry(FreshWriter& w)
{
    w.entry("lost"_s);
}
void oneBatch(FreshWriter& w)
{
    w.writer.receiveUserLogs(QList<LogInformation>{{"T"_s, "B"_s, "l"_s, 6}});
}
void connectWriter(FreshWriter& w)
{
    w.writer.setSystermConnectState(true);
}
void brokenBcc(FreshWriter& w) // port 0 refuses; the writer is gone before the next probe
{
    w.writer.receiveBccLogs(false, "127.0.0.1"_s, 0, "down"_s);
}

} // namespace

Q_DECLARE_METATYPE(Step)
Q_DECLARE_METATYPE(Event)
Q_DECLARE_METATYPE(Block)

class TestWriter : public QObject
{
    Q_OBJECT

private slots:
    void init() { QVERIFY(_tree.emplace().isValid()); }

    void cleanup() { _tree.reset(); }
    void transitions_data()
    {
        QTest::addColumn<QVector<Step>>("steps");
        QTest::addColumn<QStringList>("onlineUser");
        QTest::addColumn<QStringList>("onlinePrint");
        QTest::addColumn<QStringList>("offlineUser");
        QTest::addColumn<QStringList>("offlinePrint");
        using S = Step;
        QTest::newRow("not connected right after start-up: ignored")
            << QVector<S>{S::Lose} << QStringList() << QStringList() << startUp << startUp;
        QTest::newRow("connected twice: one banner")
            << QVector<S>{S::Connect, S::Connect} << connected << connected << startUp << startUp;
        QTest::newRow("loss announced online, then the user log moves offline")
            << QVector<S>{S::Connect, S::Lose, S::Lose, S::Entry} << connected + lost
            << connected + lost + entryOffline << startUp + entryOffline << startUp;
        QTest::newRow("the form without arguments is a loss")
            << QVector<S>{S::Connect, S::LoseNoArguments} << connected + lost << connected + lost
            << startUp << startUp;
        QTest::newRow("reconnected: back to the online files")
            << QVector<S>{S::Connect, S::Lose, S::Connect, S::Entry}
            << connected + lost + connected + entryOnline
            << connected + lost + connected + entryOnline << startUp << startUp;
        QTest::newRow("(true, true) while online: another connected banner")
            << QVector<S>{S::Connect, S::ConnectFirstTime} << connected + connected
            << connected + connected << startUp << startUp;
        QTest::newRow("(false, true) while online: start-up again, offline")
            << QVector<S>{S::Connect, S::StartUpAgain, S::Entry} << connected << connected
            << startUp + startUp + entryOffline << startUp + startUp + entryOffline;
        // The failed loss leaves the user log online with the offline header; the
        // repeated loss is ignored, and the next connect makes the online state whole.
        QTest::newRow("a loss whose banner fails: user log stays online until reconnected")
            << QVector<S>{S::Connect, S::BlockOnlinePrintFile,
                          S::Lose,    S::UnblockOnlinePrintFile,
                          S::Lose,    S::Entry,
                          S::Connect, S::Entry}
            << connected + entryOffline + connected + entryOnline
            << entryOffline + connected + entryOnline << startUp << startUp;
    }

    void transitions()
    {
        QFETCH(QVector<Step>, steps);
        UserLogWriter writer;
        apply(writer, steps);
        const QString paths[] = {onlineUserLog, onlinePrintFile, offlineUserLog, offlinePrintFile};
        const char* columns[] = {"onlineUser", "onlinePrint", "offlineUser", "offlinePrint"};
        for (int i = 0; i < 4; ++i) {
            const QStringList expected = *static_cast<const QStringList*>(
                QTest::qData(columns[i], qMetaTypeId<QStringList>()));
            QVERIFY2(QFileInfo::exists(logFile(paths[i])) == !expected.isEmpty(),
                     qPrintable(paths[i]));
            QCOMPARE(contents(paths[i]), expected);
        }
    }

    // The custom name is read at start-up and at every connect, a reconnect too; never
    // at a loss (the names differ in length: no stale settings cache). The current files
    // are found in the directory at every write, never remembered: a switch resets no index.
    void customNameAndIndexAtEachConnect()
    {
        QVERIFY(makeFile(logFile("online/user_log_file_5.txt"_s)) &&
                makeFile(logFile("useronline/beta22_7_x.txt"_s)));
        _tree->writeCustomLogName("alpha"_s);
        UserLogWriter writer;
        _tree->writeCustomLogName("beta22"_s);
        apply(writer, {Step::Connect});
        _tree->writeCustomLogName("gam"_s);
        apply(writer, {Step::Lose, Step::Entry, Step::Connect});
        _tree->writeCustomLogName("delta"_s);
        apply(writer, {Step::StartUpAgain});
        QCOMPARE(contents("offline/alpha_off_0_*.txt"_s), startUp);
        QCOMPARE(contents("useronline/beta22_7_x.txt"_s), connected + lost + entryOffline);
        QCOMPARE(contents("useronline/gam_0_*.txt"_s), connected);
        QCOMPARE(contents("offline/alpha_off"_s), startUp + entryOffline + startUp);
        QCOMPARE(contents("offline/delta_off_0_*.txt"_s), startUp);
        QCOMPARE(contents("online/user_log_file_5.txt"_s), connected + lost + connected);
        QCOMPARE(fileNames(logFile("online"_s)).size(), 1);
    }

    // Single entries of level 6 and batch entries of level 5 are copied to the print
    // file, which is opened for every entry. A batch goes whole into the files chosen
    // at its start; a size limit it crosses counts from the next event on.
    void entriesAndBatches()
    {
        FreshWriter w;
        const QString odd =
            "a"_s + QChar(0) + "b"_s + QChar(0xD800) + "c"_s + QChar(0xDC00) + "d"_s;
        w.entry(odd, 5);
        const QTextCodec* codec = QTextCodec::codecForLocale(); // what the text stream writes in
        QCOMPARE(readLines(w.userLog),
                 QStringList{codec->toUnicode(codec->fromUnicode("-- T -- <B> <log> "_s + odd))});
        QVERIFY(QFileInfo(w.printFile()).isFile() && readLines(w.printFile()).isEmpty());
        QVERIFY(fill(w.userLog) && fill(w.printFile()));
        w.writer.receiveUserLogs(QList<LogInformation>{
            {"T"_s, "B"_s, "a"_s, 5}, {"T"_s, "B"_s, "b"_s, 6}, {"T"_s, "B"_s, "c"_s, 5}});
        w.entry("d"_s);
        const QString a = "-- T -- <B> <printinfo> a"_s, c = "-- T -- <B> <printinfo> c"_s;
        QCOMPARE(readLines(w.userLog).mid(1), (QStringList{a, "-- T -- <B> <log> b"_s, c}));
        QCOMPARE(readLines(w.printFile()).mid(1), (QStringList{a, c}));
        const QStringList d{"-- T -- <B> <log> d"_s};
        QCOMPARE(readLines(w.tree.path("log/online/user_log_file_1.txt"_s)), d);
        QCOMPARE(readLines(w.printFile(1)), d);
    }

    // An entry keeps 100 user logs and 500 ".txt" files beside the print file.
    void retentionLimits()
    {
        FreshWriter w;
        const QString printDir = w.tree.path("log/useronline/"_s);
        for (int i = 0; i < 100; ++i)
            QVERIFY(makeFile(w.tree.path("log/online/user_log_file_%1.txt"_s.arg(i))));
        for (int i = 0; i < 501; ++i)
            QVERIFY(makeFile(printDir + "note_%1.txt"_s.arg(i)));
        const QDateTime longAgo = QDateTime::currentDateTime().addDays(-1);
        QVERIFY(setFileTimes(printDir + "note_7.txt"_s, longAgo, longAgo));
        w.entry("x"_s);
        QCOMPARE(fileNames(w.tree.path("log/online"_s)).size(), 99);
        QCOMPARE(readLines(w.tree.path("log/online/user_log_file_99.txt"_s)),
                 QStringList{"-- T -- <B> <log> x"_s});
        QCOMPARE(fileNames(printDir).size(), 501); // one deleted, the print file added
        QVERIFY(!QFile::exists(printDir + "note_7.txt"_s));
    }

    void faults_data()
    {
        QTest::addColumn<Event>("event");
        QTest::addColumn<QString>("blocked"); // below the tree's root; empty: nothing blocked
        QTest::addColumn<Block>("block");
        // %E stands for the error text of the blocked file's open, made here the same way;
        // %P for the user log's path as the writer builds it, absolute, the native
        // separator before the name ("C:/x/log/online\\user_log_file_0.txt").
        QTest::addColumn<QStringList>("messages");
        const QString noDir = "make log dir failed!"_s, notMade = "error, can not make log dir!"_s;
        const QString made = "make log dir succeded!"_s, error3 = "open log file error3:%E"_s;
        const QString printFile = "log/useronline/user_print_file_0_"_s + today() + ".txt"_s;
        const QString userLog = "log/online/user_log_file_0.txt"_s, nothing;
        const Event refused[] = {[](FreshWriter& w) { w.entry(QString()); },
                                 [](FreshWriter& w) { w.entry(""_s); }};
        QTest::newRow("single entry, null message: refused")
            << refused[0] << nothing << Block::WithFile
            << QStringList{"no log information to write!"_s};
        QTest::newRow("single entry, empty message: refused")
            << refused[1] << nothing << Block::WithFile
            << QStringList{"no log information to write!"_s};
        QTest::newRow("batch without entries: refused")
            << Event([](FreshWriter& w) { w.writer.receiveUserLogs(QList<LogInformation>()); })
            << nothing << Block::WithFile << QStringList{"received empty log list!"_s};
        for (const Event event : std::initializer_list<Event>{singleEntry, oneBatch, connectWriter})
            QTest::addRow("%s, log directory cannot be made", eventName(event))
                << event << "log"_s << Block::WithFile << QStringList{noDir, notMade};
        QTest::newRow("single entry, user log does not open")
            << Event(singleEntry) << "log/online"_s << Block::WithFile
            << QStringList{"open log file error2:%E"_s};
        QTest::newRow("batch, user log does not open: error3 as for the print file")
            << Event(oneBatch) << "log/online"_s << Block::WithFile << QStringList{error3};
        QTest::newRow("connect, user log does not open: named by its absolute path")
            << Event(connectWriter) << userLog << Block::WithDirectory
            << QStringList{"open log file error1(%P):%E"_s};
        QTest::newRow("single entry, print file does not open")
            << Event(singleEntry) << "log/useronline"_s << Block::WithFile
            << QStringList{made, error3};
        QTest::newRow("batch, print file does not open")
            << Event(oneBatch) << printFile << Block::WithDirectory << QStringList{made, error3};
        QTest::newRow("connect, print file does not open: named by its relative path")
            << Event(connectWriter) << printFile << Block::WithDirectory
            << QStringList{made, "open log file error1(../../"_s + printFile + "):%E"_s};
#ifndef Q_OS_WIN // QFile::link makes a shortcut there: a regular file
        QTest::newRow("single entry, print directory cannot be made beside the user log")
            << Event(singleEntry) << "log/useronline"_s << Block::WithDanglingLink
            << QStringList{made, noDir, notMade};
#else
        QTest::newRow("single entry, user log held")
            << Event(singleEntry) << userLog << Block::ByHoldingIt
            << QStringList{"open log file error2:%E"_s};
        QTest::newRow("connect, user log held")
            << Event(connectWriter) << userLog << Block::ByHoldingIt
            << QStringList{"open log file error1(%P):%E"_s};
#endif
        QTest::newRow("broken bcc link, log directory cannot be made: each line reported")
            << Event(brokenBcc) << "log"_s << Block::WithFile
            << QStringList{noDir, "error, can not make bcc log dir!"_s, noDir,
                           "error, can not make bcc log dir!"_s};
        QTest::newRow("broken bcc link, bcc log does not open: each line reported")
            << Event(brokenBcc) << "log/bccLog/bcc_log_file_0.txt"_s << Block::WithDirectory
            << QStringList{"open bcc log file error3:%E"_s, "open bcc log file error3:%E"_s};
    }

    // The event is dropped with its messages; the user log is there, empty, exactly
    // when it was opened before the print file failed, or held. With the fault gone
    // the next entry is written normally.
    void faults()
    {
        QFETCH(Event, event);
        QFETCH(QString, blocked);
        QFETCH(Block, block);
        QFETCH(QStringList, messages);
        FreshWriter w(event != connectWriter);
        const QString path = w.tree.path(blocked);
        std::shared_ptr<void> held;
        if (!blocked.isEmpty())
            QVERIFY(block == Block::WithDirectory ? QDir().mkpath(path)
                    : block == Block::WithDanglingLink
                        ? QDir().mkpath(w.tree.path("log"_s)) &&
                              QFile::link(w.tree.path("nowhere"_s), path)
                        : makeFile(path) &&
                              (block != Block::ByHoldingIt || (held = holdFile(path))));
        // The error text of the same failing open, made here: a file below a file, or
        // the blocked file itself.
        QFile file(blocked == "log/online"_s ? w.userLog
                   : blocked == "log/useronline"_s
                       ? w.tree.path("log/useronline/user_print_file_0_"_s + today() + ".txt"_s)
                       : path);
        QVERIFY(messages.filter("%E"_s).isEmpty() || !logfiles::openForAppend(file));
        messages.replaceInStrings("%E"_s, file.errorString());
        messages.replaceInStrings("%P"_s,
                                  QDir::cleanPath(QDir::currentPath() + "/../../log/online"_s) +
                                      QDir::separator() + "user_log_file_0.txt"_s);
        takeMessages();
        event(w);
        if (blocked.contains("user_print_file_0_"_s) && !blocked.contains(today()))
            QSKIP("midnight passed during the event: the blocked print file was the day before's");
        QCOMPARE(takeMessages(), messages);
        QCOMPARE(QFileInfo(w.userLog).isFile(),
                 messages.contains("make log dir succeded!"_s) || block == Block::ByHoldingIt);
        QVERIFY(readLines(w.userLog).isEmpty());
        QVERIFY(!QFileInfo(w.printFile()).isFile());

        held.reset();
        if (!blocked.isEmpty() && block != Block::ByHoldingIt)
            QVERIFY(block == Block::WithDirectory ? QDir(path).removeRecursively()
                                                  : QFile::remove(path));
        w.entry("back"_s);
        QCOMPARE(readLines(w.userLog).last(), "-- T -- <B> <log> back"_s);
        QCOMPARE(readLines(w.printFile()).last(), "-- T -- <B> <log> back"_s);
    }

    // Hosts and queued calls name these by index; moc lists quint16 as ushort.
    void slotIndexes()
    {
        const QMetaObject& meta = UserLogWriter::staticMetaObject;
        QStringList methods;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
            methods << QString::fromLatin1(meta.method(i).methodSignature());
        QCOMPARE(
            methods.join(' '),
            "setSystermConnectState(bool,bool) setSystermConnectState(bool) "
            "setSystermConnectState() receiveUserLogs(QString,QString,QString,int) "
            "receiveUserLogs(QString,QString,QString,UserLogLevel) "
            "receiveUserLogs(QList<LogInformation>) receiveBccLogs(bool,QString,ushort,QString) "
            "deleteOldestFiles(QString,int) checkTcpState()"_s);
    }

private:
    static const char* eventName(Event event)
    {
        return event == singleEntry ? "single entry" : event == oneBatch ? "batch" : "connect";
    }

    std::optional<TestTree> _tree;
};

QTEST_GUILESS_MAIN(TestWriter)
#include "tst_writer.moc"
