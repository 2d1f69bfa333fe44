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
// The banners and the entry "x" as the files hold them, writer-made times shown as "T".
const QStringList startUp{separator, "**T** <user log> <log> krn user log systerm booted up!"_s,
                          separator};
const QStringList connected{
    separator, "-- T -- <user log> <log> krn system connected with controller!"_s, separator};
const QStringList lost{
    separator, "**T** <user log> <log> krn system lost connection with controller!"_s, separator};
const QStringList onlineEntry{"-- T -- <B> <log> x"_s}, offlineEntry{"**T** <B> <log> x"_s};

enum class Step
{
    Connect,
    Lose,
    LoseNoArgument,  // setSystermConnectState()
    ConnectAnew,     // (true, true)
    StartUpAgain,    // (false, true)
    Entry,           // "x" of level 6
    BlockPrintFile,  // the online print file replaced by a directory
    UnblockPrintFile // that directory removed
};
using Steps = QVector<Step>;

// A dated file of the tree below ../../log, named with "*" for its date.
QString onDisk(const QString& path)
{
    return anyDay("../../log/"_s + path);
}

QStringList contents(const QString& path)
{
    return withoutTimes(readLines(onDisk(path)));
}

void run(UserLogWriter& writer, const Steps& steps)
{
    const QString onlinePrint = "useronline/user_print_file_0_*.txt"_s;
    for (const Step step : steps) {
        switch (step) {
        case Step::Connect:
        case Step::Lose:
            writer.setSystermConnectState(step == Step::Connect);
            break;
        case Step::LoseNoArgument:
            writer.setSystermConnectState();
            break;
        case Step::ConnectAnew:
        case Step::StartUpAgain:
            writer.setSystermConnectState(step == Step::ConnectAnew, true);
            break;
        case Step::Entry:
            writer.receiveUserLogs("B"_s, "T"_s, "x"_s, 6);
            break;
        case Step::BlockPrintFile: {
            const QString path = onDisk(onlinePrint);
            QVERIFY(QFile::remove(path) && QDir().mkpath(path));
            break;
        }
        case Step::UnblockPrintFile:
            QVERIFY(QDir().rmdir(onDisk(onlinePrint)));
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

enum class Event
{
    Single,
    Batch,
    Connect,
    BrokenBcc, // its report and first probe: two writes
    NullMessage,
    EmptyMessage,
    EmptyBatch,
};

// What a row puts at its blocked path.
enum class Blocker
{
    None,
    RegularFile,
    Directory,
    HeldFile, // held open without sharing, as a viewer may hold a log
    DanglingLink,
};

// The file whose open fails, if any.
enum class Failing
{
    None,
    UserLog,
    PrintFile,
    BccLog,
};

} // namespace

Q_DECLARE_METATYPE(Steps)
Q_DECLARE_METATYPE(Event)
Q_DECLARE_METATYPE(Blocker)
Q_DECLARE_METATYPE(Failing)

class TestWriter : public QObject
{
    Q_OBJECT

private slots:
    void init() { QVERIFY(_tree.emplace().isValid()); }

    void cleanup() { _tree.reset(); }
    void transitions_data()
    {
        QTest::addColumn<Steps>("steps");
        QTest::addColumn<QStringList>("onlineUserLog"); // empty: the file is not there
        QTest::addColumn<QStringList>("onlinePrintFile");
        QTest::addColumn<QStringList>("offlineUserLog");
        QTest::addColumn<QStringList>("offlinePrintFile");
        using S = Step;
        QTest::newRow("a loss while offline is ignored")
            << Steps{S::Lose} << QStringList() << QStringList() << startUp << startUp;
        QTest::newRow("a repeated connect is ignored")
            << Steps{S::Connect, S::Connect} << connected << connected << startUp << startUp;
        QTest::newRow("a loss is announced online, then the user log goes offline")
            << Steps{S::Connect, S::Lose, S::Lose, S::Entry} << connected + lost
            << connected + lost + offlineEntry << startUp + offlineEntry << startUp;
        QTest::newRow("the form without arguments is a loss")
            << Steps{S::Connect, S::LoseNoArgument} << connected + lost << connected + lost
            << startUp << startUp;
        QTest::newRow("a reconnect goes on in the online files")
            << Steps{S::Connect, S::Lose, S::Connect, S::Entry}
            << connected + lost + connected + onlineEntry
            << connected + lost + connected + onlineEntry << startUp << startUp;
        QTest::newRow("(true, true) while online connects again")
            << Steps{S::Connect, S::ConnectAnew} << connected + connected << connected + connected
            << startUp << startUp;
        QTest::newRow("(false, true) while online starts up again, offline")
            << Steps{S::Connect, S::StartUpAgain, S::Entry} << connected << connected
            << startUp + startUp + offlineEntry << startUp + startUp + offlineEntry;
        // The failed loss still takes the offline header and state, so the next loss is
        // ignored, but the user log stays online.
        QTest::newRow("a loss whose banner fails leaves the user log online")
            << Steps{S::Connect, S::BlockPrintFile, S::Lose,    S::UnblockPrintFile,
                     S::Lose,    S::Entry,          S::Connect, S::Entry}
            << connected + offlineEntry + connected + onlineEntry
            << offlineEntry + connected + onlineEntry << startUp << startUp;
    }

    void transitions()
    {
        QFETCH(Steps, steps);
        QFETCH(QStringList, onlineUserLog);
        QFETCH(QStringList, onlinePrintFile);
        QFETCH(QStringList, offlineUserLog);
        QFETCH(QStringList, offlinePrintFile);
        UserLogWriter writer;
        run(writer, steps);
        const QStringList expected[] = {onlineUserLog, onlinePrintFile, offlineUserLog,
                                        offlinePrintFile};
        const QString paths[] = {
            "online/user_log_file_0.txt"_s, "useronline/user_print_file_0_*.txt"_s,
            "offline/user_print_file_off"_s, "offline/user_print_file_off_0_*.txt"_s};
        for (int i = 0; i < 4; ++i) {
            QVERIFY2(QFileInfo(onDisk(paths[i])).isFile() == !expected[i].isEmpty(),
                     qPrintable(paths[i]));
            QCOMPARE(contents(paths[i]), expected[i]);
        }
    }

    // The custom name is read at start-up and at every connect, a reconnect too; never
    // at a loss (the names differ in length: no stale settings cache). The current files
    // are found in the directory at every write, never remembered: a switch resets no index.
    void customNameAndIndexAtEachConnect()
    {
        QVERIFY(makeFile(onDisk("online/user_log_file_5.txt"_s)) &&
                makeFile(onDisk("useronline/beta22_7_x.txt"_s)));
        _tree->writeCustomLogName("alpha"_s);
        UserLogWriter writer;
        _tree->writeCustomLogName("beta22"_s);
        run(writer, {Step::Connect});
        _tree->writeCustomLogName("gam"_s);
        run(writer, {Step::Lose, Step::Entry, Step::Connect});
        _tree->writeCustomLogName("delta"_s);
        run(writer, {Step::StartUpAgain});
        QCOMPARE(contents("offline/alpha_off_0_*.txt"_s), startUp);
        QCOMPARE(contents("useronline/beta22_7_x.txt"_s), connected + lost + offlineEntry);
        QCOMPARE(contents("useronline/gam_0_*.txt"_s), connected);
        QCOMPARE(contents("offline/alpha_off"_s), startUp + offlineEntry + startUp);
        QCOMPARE(contents("offline/delta_off_0_*.txt"_s), startUp);
        QCOMPARE(contents("online/user_log_file_5.txt"_s), connected + lost + connected);
        QCOMPARE(fileNames(onDisk("online"_s)).size(), 1);
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
        QTest::addColumn<QString>("blockedPath"); // in the tree
        QTest::addColumn<Blocker>("blocker");
        QTest::addColumn<QStringList>("messages"); // per write, before a failed open's message
        QTest::addColumn<Failing>("failing");
        QTest::addColumn<bool>("userLogMade"); // there, and empty, after the event
        const QStringList noDir{"make log dir failed!"_s, "error, can not make log dir!"_s};
        const QStringList madeDir{"make log dir succeded!"_s};
        const std::pair<Event, const char*> entryOrConnect[] = {
            {Event::Single, "single"}, {Event::Batch, "batch"}, {Event::Connect, "connect"}};
        QTest::newRow("single, null message: refused")
            << Event::NullMessage << QString() << Blocker::None
            << QStringList{"no log information to write!"_s} << Failing::None << false;
        QTest::newRow("single, empty message: refused")
            << Event::EmptyMessage << QString() << Blocker::None
            << QStringList{"no log information to write!"_s} << Failing::None << false;
        QTest::newRow("batch without entries: refused")
            << Event::EmptyBatch << QString() << Blocker::None
            << QStringList{"received empty log list!"_s} << Failing::None << false;
        for (const auto& [event, name] : entryOrConnect)
            QTest::addRow("%s, no log directory", name)
                << event << "log"_s << Blocker::RegularFile << noDir << Failing::None << false;
        QTest::newRow("single, user log directory a file")
            << Event::Single << "log/online"_s << Blocker::RegularFile << QStringList()
            << Failing::UserLog << false;
        QTest::newRow("batch, user log directory a file")
            << Event::Batch << "log/online"_s << Blocker::RegularFile << QStringList()
            << Failing::UserLog << false;
        QTest::newRow("connect, user log a directory")
            << Event::Connect << "log/online/user_log_file_0.txt"_s << Blocker::Directory
            << QStringList() << Failing::UserLog << false;
        for (const auto& [event, name] : entryOrConnect)
            QTest::addRow("%s, print directory a file", name)
                << event << "log/useronline"_s << Blocker::RegularFile << madeDir
                << Failing::PrintFile << true;
#ifndef Q_OS_WIN // QFile::link makes a shortcut there: a regular file
        QTest::newRow("single, print directory a dangling link beside the user log")
            << Event::Single << "log/useronline"_s << Blocker::DanglingLink << madeDir + noDir
            << Failing::None << true;
#else
        for (const auto& [event, name] : {entryOrConnect[0], entryOrConnect[2]})
            QTest::addRow("%s, user log held", name)
                << event << "log/online/user_log_file_0.txt"_s << Blocker::HeldFile << QStringList()
                << Failing::UserLog << true;
#endif
        QTest::newRow("bcc, no log directory")
            << Event::BrokenBcc << "log"_s << Blocker::RegularFile
            << QStringList{"make log dir failed!"_s, "error, can not make bcc log dir!"_s}
            << Failing::None << false;
        QTest::newRow("bcc, bcc log a directory")
            << Event::BrokenBcc << "log/bccLog/bcc_log_file_0.txt"_s << Blocker::Directory
            << QStringList() << Failing::BccLog << false;
    }

    void faults()
    {
        QFETCH(Event, event);
        QFETCH(QString, blockedPath);
        QFETCH(Blocker, blocker);
        QFETCH(QStringList, messages);
        QFETCH(Failing, failing);
        QFETCH(bool, userLogMade);
        FreshWriter w(event != Event::Connect);
        const QString blocked = w.tree.path(blockedPath);
        std::shared_ptr<void> held;
        QVERIFY(QDir().mkpath(QFileInfo(blocked).path()));
        switch (blocker) {
        case Blocker::None:
            break;
        case Blocker::RegularFile:
            QVERIFY(makeFile(blocked));
            break;
        case Blocker::Directory:
            QVERIFY(QDir().mkpath(blocked));
            break;
        case Blocker::HeldFile:
            QVERIFY(makeFile(blocked) && (held = holdFile(blocked)));
            break;
        case Blocker::DanglingLink:
            QVERIFY(QFile::link(w.tree.path("nowhere"_s), blocked));
        }
        const QString day = today();
        takeMessages();
        switch (event) {
        case Event::Single:
        case Event::NullMessage:
        case Event::EmptyMessage:
            w.entry(event == Event::Single         ? "lost"_s
                    : event == Event::EmptyMessage ? ""_s
                                                   : QString());
            break;
        case Event::Batch:
            w.writer.receiveUserLogs(QList<LogInformation>{{"T"_s, "B"_s, "l"_s, 6}});
            break;
        case Event::EmptyBatch:
            w.writer.receiveUserLogs(QList<LogInformation>());
            break;
        case Event::Connect:
            w.writer.setSystermConnectState(true);
            break;
        case Event::BrokenBcc: // port 0 refuses; the writer is gone before the next probe
            w.writer.receiveBccLogs(false, "127.0.0.1"_s, 0, "down"_s);
        }
        if (today() != day)
            QSKIP("the day changed during the event: the print file's name with it");
        if (failing != Failing::None)
            messages << failedOpenMessage(event, failing, day);
        QCOMPARE(takeMessages(), event == Event::BrokenBcc ? messages + messages : messages);
        QCOMPARE(QFileInfo(w.userLog).isFile(), userLogMade);
        QVERIFY(readLines(w.userLog).isEmpty());
        QVERIFY(!QFileInfo(w.printFile()).isFile());

        // With the fault gone, the next entry is written normally; a file let go is
        // written into.
        held.reset();
        if (blocker != Blocker::None && blocker != Blocker::HeldFile)
            QVERIFY(blocker == Blocker::Directory ? QDir(blocked).removeRecursively()
                                                  : QFile::remove(blocked));
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
    // The message of a failed open: its text by event and file, the file's path as the
    // writer builds it for a banner, and the error text of the same open made here.
    static QString failedOpenMessage(Event event, Failing failing, const QString& day)
    {
        const QString path =
            failing == Failing::PrintFile
                ? "../../log/useronline/user_print_file_0_"_s + day + ".txt"_s
                : QDir::cleanPath(QDir::currentPath() + (failing == Failing::UserLog
                                                             ? "/../../log/online"_s
                                                             : "/../../log/bccLog"_s)) +
                      QDir::separator() +
                      (failing == Failing::UserLog ? "user_log_file_0.txt"_s
                                                   : "bcc_log_file_0.txt"_s);
        QFile file(path);
        if (logfiles::openForAppend(file))
            return "the open did not fail: "_s + path;
        const QString error = file.errorString();
        if (event == Event::BrokenBcc)
            return "open bcc log file error3:"_s + error;
        if (event == Event::Connect)
            return "open log file error1("_s + path + "):"_s + error;
        if (event == Event::Single && failing == Failing::UserLog)
            return "open log file error2:"_s + error;
        return "open log file error3:"_s + error;
    }

    std::optional<TestTree> _tree;
};

QTEST_GUILESS_MAIN(TestWriter)
#include "tst_writer.moc"
