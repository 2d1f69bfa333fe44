// Writer events driven directly: the banners of each connection transition, the
// custom print name, entries and batches, the retention limits, one table of faults
// that drop an event with its message while the next event is written, a full disk.
#include "testtree.h"
#include "userlog/writer/userlogwriter.h"

#include <QtTest/QtTest>

#include <memory>
#include <optional>

#ifdef Q_OS_LINUX
#include <sys/mount.h>
#endif

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

// A dated file of the tree below ../../log, named with "*" for its date.
QString onDisk(const QString& path)
{
    return anyDay("../../log/"_s + path);
}

QStringList contents(const QString& path)
{
    return withoutTimes(readLines(onDisk(path)));
}

// What a test does to the writer, or to its files between two events.
using Step = void (*)(UserLogWriter&);
using Steps = QVector<Step>;
const Step connectNow = [](UserLogWriter& w) { w.setSystermConnectState(true); };
const Step lose = [](UserLogWriter& w) { w.setSystermConnectState(false); };
const Step loseNoArgument = [](UserLogWriter& w) { w.setSystermConnectState(); };
const Step connectAnew = [](UserLogWriter& w) { w.setSystermConnectState(true, true); };
const Step startUpAgain = [](UserLogWriter& w) { w.setSystermConnectState(false, true); };
const Step entry = [](UserLogWriter& w) { w.receiveUserLogs("B"_s, "T"_s, "x"_s, 6); };
const Step blockPrintFile = [](UserLogWriter&) { // a directory in the online print file's place
    const QString path = onDisk("useronline/user_print_file_0_*.txt"_s);
    QVERIFY(QFile::remove(path) && QDir().mkpath(path));
};
const Step unblockPrintFile = [](UserLogWriter&) {
    QVERIFY(QDir().rmdir(onDisk("useronline/user_print_file_0_*.txt"_s)));
};
// Events that fail: the single entry "lost", a batch, a connect, a broken bcc link (its
// report and first probe; port 0 refuses, and the writer is gone before the next probe).
const Step single = [](UserLogWriter& w) { w.receiveUserLogs("B"_s, "T"_s, "lost"_s, 6); };
const Step batch = [](UserLogWriter& w) { w.receiveUserLogs({{"T"_s, "B"_s, "l"_s, 6}}); };
const Step brokenBcc = [](UserLogWriter& w) { w.receiveBccLogs(false, "127.0.0.1"_s, 0, ""_s); };

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
           file.write(QByteArray(1048576 - 11, '#') + '\n') > 0;
}

// What a fault row puts at its blocked path.
enum class Blocker
{
    RegularFile,
    Directory,
    HeldFile, // held open without sharing, as a viewer may hold a log
    DanglingLink,
};

// The file whose open fails; its path and error text fill %1 and %2 of the messages.
enum class Failing
{
    None,
    UserLog,
    PrintFile,
    BccLog,
};

void faultRow(const char* name, Step event, const char* blockedPath, Blocker blocker,
              const QStringList& messages, Failing failing = Failing::None,
              bool userLogMade = false)
{
    QTest::newRow(name) << event << QString(blockedPath) << blocker << messages << failing
                        << userLogMade;
}

} // namespace

Q_DECLARE_METATYPE(Steps)
Q_DECLARE_METATYPE(Step)
Q_DECLARE_METATYPE(Blocker)
Q_DECLARE_METATYPE(Failing)

class TestWriter : public QObject
{
    Q_OBJECT

private slots:
    void init() { QVERIFY(_tree.emplace().isValid()); }

    void transitions_data()
    {
        QTest::addColumn<Steps>("steps");
        QTest::addColumn<QStringList>("onlineUserLog"); // empty: the file is not there
        QTest::addColumn<QStringList>("onlinePrintFile");
        QTest::addColumn<QStringList>("offlineUserLog");
        QTest::addColumn<QStringList>("offlinePrintFile");
        QTest::newRow("a loss while offline is ignored")
            << Steps{lose} << QStringList() << QStringList() << startUp << startUp;
        QTest::newRow("a repeated connect is ignored")
            << Steps{connectNow, connectNow} << connected << connected << startUp << startUp;
        QTest::newRow("a loss is announced online, then the user log goes offline")
            << Steps{connectNow, lose, lose, entry} << connected + lost
            << connected + lost + offlineEntry << startUp + offlineEntry << startUp;
        QTest::newRow("the form without arguments is a loss")
            << Steps{connectNow, loseNoArgument} << connected + lost << connected + lost << startUp
            << startUp;
        const QStringList reconnected = connected + lost + connected + onlineEntry;
        QTest::newRow("a reconnect goes on in the online files")
            << Steps{connectNow, lose, connectNow, entry} << reconnected << reconnected << startUp
            << startUp;
        QTest::newRow("(true, true) while online connects again")
            << Steps{connectNow, connectAnew} << connected + connected << connected + connected
            << startUp << startUp;
        QTest::newRow("(false, true) while online starts up again, offline")
            << Steps{connectNow, startUpAgain, entry} << connected << connected
            << startUp + startUp + offlineEntry << startUp + startUp + offlineEntry;
        // The failed loss still takes the offline header and state, so the next loss is
        // ignored, but the user log stays online.
        QTest::newRow("a loss whose banner fails leaves the user log online")
            << Steps{connectNow, blockPrintFile, lose,       unblockPrintFile,
                     lose,       entry,          connectNow, entry}
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
        for (const Step step : steps)
            step(writer);
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
        connectNow(writer);
        _tree->writeCustomLogName("gam"_s);
        for (const Step step : {lose, entry, connectNow})
            step(writer);
        _tree->writeCustomLogName("delta"_s);
        startUpAgain(writer);
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
    // at its start; a size limit it crosses counts from the next event on. Input without
    // a message is refused.
    void entriesAndBatches()
    {
        FreshWriter w;
        takeMessages();
        w.entry(QString());
        w.entry(""_s);
        w.writer.receiveUserLogs(QList<LogInformation>());
        QCOMPARE(takeMessages(),
                 (QStringList{"no log information to write!"_s, "no log information to write!"_s,
                              "received empty log list!"_s}));
        QVERIFY(!QFileInfo::exists(w.tree.path("log"_s)));
        const QString odd =
            "a"_s + QChar(0) + "b"_s + QChar(0xD800) + "c"_s + QChar(0xDC00) + "d"_s;
        w.entry(odd, 5);
        QCOMPARE(takeMessages(), QStringList{"make log dir succeded!"_s}); // the print one: silent
        // Unpaired surrogates come out as "?", as Qt 5's text stream writes them.
        QCOMPARE(readLines(w.userLog), QStringList{"-- T -- <B> <log> a"_s + QChar(0) + "b?c?d"_s});
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
        QTest::addColumn<Step>("event");
        QTest::addColumn<QString>("blockedPath"); // in the tree
        QTest::addColumn<Blocker>("blocker");
        QTest::addColumn<QStringList>("messages");
        QTest::addColumn<Failing>("failing");
        QTest::addColumn<bool>("userLogMade"); // there, and empty, after the event
        const QStringList noDir{"make log dir failed!"_s, "error, can not make log dir!"_s};
        const QString made = "make log dir succeded!"_s, error3 = "open log file error3:%2"_s;
        faultRow("single, no log directory", single, "log", Blocker::RegularFile, noDir);
        faultRow("single, user log directory a file", single, "log/online", Blocker::RegularFile,
                 {"open log file error2:%2"_s}, Failing::UserLog);
        faultRow("batch, user log directory a file", batch, "log/online", Blocker::RegularFile,
                 {error3}, Failing::UserLog);
        faultRow("connect, user log a directory", connectNow, "log/online/user_log_file_0.txt",
                 Blocker::Directory, {"open log file error1(%1):%2"_s}, Failing::UserLog);
        faultRow("single, print directory a file", single, "log/useronline", Blocker::RegularFile,
                 {made, error3}, Failing::PrintFile, true);
        faultRow("connect, print directory a file", connectNow, "log/useronline",
                 Blocker::RegularFile, {made, "open log file error1(%1):%2"_s}, Failing::PrintFile,
                 true);
#ifndef Q_OS_WIN // QFile::link makes a shortcut there: a regular file
        faultRow("single, print directory a dangling link beside the user log", single,
                 "log/useronline", Blocker::DanglingLink, QStringList{made} + noDir, Failing::None,
                 true);
#else
        faultRow("single, user log held", single, "log/online/user_log_file_0.txt",
                 Blocker::HeldFile, {"open log file error2:%2"_s}, Failing::UserLog, true);
        faultRow("connect, user log held", connectNow, "log/online/user_log_file_0.txt",
                 Blocker::HeldFile, {"open log file error1(%1):%2"_s}, Failing::UserLog, true);
#endif
        const QStringList noBccDir{"make log dir failed!"_s, "error, can not make bcc log dir!"_s};
        faultRow("bcc, no log directory", brokenBcc, "log", Blocker::RegularFile,
                 noBccDir + noBccDir);
        faultRow("bcc, bcc log a directory", brokenBcc, "log/bccLog/bcc_log_file_0.txt",
                 Blocker::Directory,
                 {"open bcc log file error3:%2"_s, "open bcc log file error3:%2"_s},
                 Failing::BccLog);
    }

    void faults()
    {
        QFETCH(Step, event);
        QFETCH(QString, blockedPath);
        QFETCH(Blocker, blocker);
        QFETCH(QStringList, messages);
        QFETCH(Failing, failing);
        QFETCH(bool, userLogMade);
        FreshWriter w(event != connectNow);
        const QString blocked = w.tree.path(blockedPath);
        std::shared_ptr<void> held;
        QVERIFY(QDir().mkpath(QFileInfo(blocked).path()));
        QVERIFY(blocker == Blocker::RegularFile ? makeFile(blocked)
                : blocker == Blocker::Directory ? QDir().mkpath(blocked)
                : blocker == Blocker::DanglingLink
                    ? QFile::link(w.tree.path("nowhere"_s), blocked)
                    : makeFile(blocked) && (held = holdFile(blocked)));
        const QString day = today();
        // Open descriptors where the kernel lists them; under Wine /proc is Wine's own.
        const auto openFiles = [] {
            return QSysInfo::kernelType() == "linux"_s ? QDir("/proc/self/fd"_s).count() : 0u;
        };
        const uint filesBefore = openFiles();
        takeMessages();
        event(w.writer);
        QCOMPARE(openFiles(), filesBefore); // a dropped event leaves no file open
        if (today() != day)
            QSKIP("the day changed during the event: the print file's name with it");
        // The failing file's path: the user log's and the bcc log's absolute, with the
        // native separator before the name; the print file's relative. The error text
        // is Qt's own, from the same open done here.
        const QString root = QFileInfo(w.tree.root()).canonicalFilePath();
        const QString path =
            failing == Failing::PrintFile
                ? "../../log/useronline/user_print_file_0_"_s + day + ".txt"_s
            : failing == Failing::BccLog
                ? root + "/log/bccLog"_s + QDir::separator() + "bcc_log_file_0.txt"_s
                : root + "/log/online"_s + QDir::separator() + "user_log_file_0.txt"_s;
        QFile file(path);
        QVERIFY(failing == Failing::None ||
                !file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text));
        QCOMPARE(
            takeMessages(),
            messages.replaceInStrings("%1"_s, path).replaceInStrings("%2"_s, file.errorString()));
        QCOMPARE(QFileInfo(w.userLog).isFile(), userLogMade);
        QVERIFY(readLines(w.userLog).isEmpty());
        QVERIFY(!QFileInfo(w.printFile()).isFile());

        // With the fault gone, the next entry is written normally; a file let go is
        // written into.
        held.reset();
        if (blocker != Blocker::HeldFile)
            QVERIFY(blocker == Blocker::Directory ? QDir(blocked).removeRecursively()
                                                  : QFile::remove(blocked));
        w.entry("back"_s);
        QCOMPARE(readLines(w.userLog).last(), "-- T -- <B> <log> back"_s);
        QCOMPARE(readLines(w.printFile()).last(), "-- T -- <B> <log> back"_s);
    }

    // A full disk: the entry that hits it is cut short and told once per file; nothing
    // more is said while the disk stays full; once there is room the next entry starts
    // on a line of its own, so no line holds two entries.
    void fullDisk()
    {
#ifdef Q_OS_LINUX
        const QByteArray log = QFile::encodeName(_tree->path("log"_s));
        QVERIFY(QDir().mkpath(_tree->path("log"_s)));
        if (::mount("tmpfs", log.constData(), "tmpfs", 0, "size=64k") != 0)
            QSKIP("a small tmpfs cannot be mounted here (needs root)");
        const auto unmount = qScopeGuard([&log] { ::umount2(log.constData(), MNT_DETACH); });
        UserLogWriter writer;
        writer.setSystermConnectState(true);
        const QString userLog = _tree->path("log/online/user_log_file_0.txt"_s);
        const QString printFile = onDisk("useronline/user_print_file_0_*.txt"_s);
        QFile filler(_tree->path("log/filler"_s));
        QVERIFY(filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        while (filler.write(QByteArray(4096, 'f')) > 0) { // the last free page
        }
        filler.close();
        takeMessages();
        const QString cut = QString(6000, QChar('c')); // longer than a page: cut short
        writer.receiveUserLogs("B"_s, "T"_s, cut, 6);
        writer.receiveUserLogs("B"_s, "T"_s, "dropped"_s, 6);
        const QString root = QFileInfo(_tree->root()).canonicalFilePath();
        QCOMPARE(
            takeMessages(),
            (QStringList{"write log file error("_s + root +
                             "/log/online/user_log_file_0.txt):No space left on device"_s,
                         "write log file error("_s + printFile + "):No space left on device"_s}));
        QVERIFY(QFile::remove(filler.fileName()));
        writer.receiveUserLogs("B"_s, "T"_s, "back"_s, 6);
        writer.receiveUserLogs("B"_s, "T"_s, "again"_s, 6);
        QCOMPARE(takeMessages(), QStringList());
        for (const QString& path : {userLog, printFile}) {
            const QStringList lines = withoutTimes(readLines(path));
            QCOMPARE(lines.mid(0, 3), connected);
            QVERIFY(lines.at(3).startsWith("-- T -- <B> <log> ccc"_s));
            QVERIFY(lines.at(3).size() < 6000);
            QCOMPARE(lines.mid(4),
                     (QStringList{"-- T -- <B> <log> back"_s, "-- T -- <B> <log> again"_s}));
        }
#else
        QSKIP("a small tmpfs is a Linux mount");
#endif
    }

private:
    std::optional<TestTree> _tree;
};

QTEST_GUILESS_MAIN(TestWriter)
#include "tst_writer.moc"
