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

// The lines that kinds stand for, times shown as "T": S start-up, C connected and L lost
// banner; E and e the entry that op 'e' writes, with the online and the offline header.
QStringList banners(const QString& kinds)
{
    const QString separator = "//---------------------------------"_s;
    const QString texts[] = {"**T** <user log> <log> krn user log systerm booted up!"_s,
                             "-- T -- <user log> <log> krn system connected with controller!"_s,
                             "**T** <user log> <log> krn system lost connection with controller!"_s,
                             "-- T -- <B> <log> x"_s, "**T** <B> <log> x"_s};
    QStringList lines;
    for (const QChar kind : kinds) {
        const QString text = texts["SCLEe"_s.indexOf(kind)];
        lines << (kind.toLower() == 'e' ? QStringList{text}
                                        : QStringList{separator, text, separator});
    }
    return lines;
}

// A log file as the writer names it below ../../log; "<today>" stands for today's date.
QString logFile(const QString& path)
{
    return "../../log/"_s + QString(path).replace("<today>"_s, today());
}

QStringList contents(const QString& path)
{
    return withoutTimes(readLines(logFile(path)));
}

const QString onPrint = "useronline/user_print_file_0_<today>.txt"_s;

// Ops on the writer: c connect and l lose, n the no-argument loss, C and S the forms
// (true, true) and (false, true), e an entry "x" of level 6. X makes a directory of the
// online print file, o removes it.
void apply(UserLogWriter& writer, const QString& ops)
{
    for (const QChar op : ops) {
        if (op == 'X')
            QVERIFY(QFile::remove(logFile(onPrint)) && QDir().mkpath(logFile(onPrint)));
        else if (op == 'o')
            QVERIFY(QDir().rmdir(logFile(onPrint)));
        else if (op == 'e')
            writer.receiveUserLogs("B"_s, "T"_s, "x"_s, 6);
        else if (op == 'n')
            writer.setSystermConnectState();
        else if (op == 'c' || op == 'l')
            writer.setSystermConnectState(op == 'c');
        else
            writer.setSystermConnectState(op == 'C', true);
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
    TestTree tree;
    UserLogWriter writer;
    const QString userLog = tree.path("log/online/user_log_file_0.txt"_s);
    const QString printFile = tree.path("log/useronline/user_print_file_0_"_s + today() + ".txt"_s);
};

// Leaves the file about 10 bytes short of full, in one line of '#'.
bool fill(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Text) &&
           file.write(QByteArray(int(logfiles::maxLogFileSize - 11), '#') + '\n') > 0;
}

} // namespace

class TestWriter : public QObject
{
    Q_OBJECT

private slots:
    void init() { QVERIFY(_tree.emplace().isValid()); }

    void cleanup() { _tree.reset(); }
    void transitions_data()
    {
        // files: the banners and entries of the online user log and print file, then of the
        // offline ones, "-" when the file is not there.
        QTest::addColumn<QString>("ops");
        QTest::addColumn<QString>("files");
        addRow("start-up; not connected: ignored", "l", "- - S S");
        addRow("connect; repeated: ignored", "cc", "C C S S");
        addRow("loss online, then user log offline", "clle", "CL CLe Se S");
        addRow("no-argument form is a loss", "cn", "CL CL S S");
        addRow("reconnect", "clce", "CLCE CLCE S S");
        addRow("(true, true) while online", "cC", "CC CC S S");
        addRow("(false, true) while online", "cSe", "C C SSe SSe");
        addRow("failed loss, next ignored, connect", "cXlolece", "CeCE eCE S S");
    }

    void transitions()
    {
        QFETCH(QString, ops);
        QFETCH(QString, files);
        UserLogWriter writer;
        apply(writer, ops);
        const QString paths[] = {"online/user_log_file_0.txt"_s, onPrint,
                                 "offline/user_print_file_off"_s,
                                 "offline/user_print_file_off_0_<today>.txt"_s};
        for (int i = 0; i < 4; ++i) {
            const QString kinds = files.section(' ', i, i);
            QVERIFY2(QFile::exists(logFile(paths[i])) == (kinds != "-"_s), qPrintable(paths[i]));
            QCOMPARE(contents(paths[i]), banners(kinds == "-"_s ? QString() : kinds));
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
        apply(writer, "c"_s);
        _tree->writeCustomLogName("gam"_s);
        apply(writer, "lec"_s);
        _tree->writeCustomLogName("delta"_s);
        apply(writer, "S"_s);
        QCOMPARE(contents("offline/alpha_off_0_<today>.txt"_s), banners("S"_s));
        QCOMPARE(contents("useronline/beta22_7_x.txt"_s), banners("CLe"_s));
        QCOMPARE(contents("useronline/gam_0_<today>.txt"_s), banners("C"_s));
        QCOMPARE(contents("offline/alpha_off"_s), banners("SeS"_s));
        QCOMPARE(contents("offline/delta_off_0_<today>.txt"_s), banners("S"_s));
        QCOMPARE(contents("online/user_log_file_5.txt"_s), banners("CLC"_s));
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
        QVERIFY(QFileInfo(w.printFile).isFile() && readLines(w.printFile).isEmpty());
        QVERIFY(fill(w.userLog) && fill(w.printFile));
        w.writer.receiveUserLogs(QList<LogInformation>{
            {"T"_s, "B"_s, "a"_s, 5}, {"T"_s, "B"_s, "b"_s, 6}, {"T"_s, "B"_s, "c"_s, 5}});
        w.entry("d"_s);
        const QString a = "-- T -- <B> <printinfo> a"_s, c = "-- T -- <B> <printinfo> c"_s;
        QCOMPARE(readLines(w.userLog).mid(1), (QStringList{a, "-- T -- <B> <log> b"_s, c}));
        QCOMPARE(readLines(w.printFile).mid(1), (QStringList{a, c}));
        const QStringList d{"-- T -- <B> <log> d"_s};
        QCOMPARE(readLines(w.tree.path("log/online/user_log_file_1.txt"_s)), d);
        QCOMPARE(readLines(w.tree.path("log/useronline/user_print_file_1_"_s + today() + ".txt"_s)),
                 d);
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
        // event: single, batch, connect or bcc (a broken link: its report and first probe);
        // "null", "empty" and "no entries" refused input. blocker: a file made there, or USER,
        // PRINT or BCC: the current user log, print file or bcc log made a directory, HELD:
        // the current user log held open, or DANGLING: a link to nothing for log/useronline.
        // messages: "|" between them, %P the blocked file, %E the error text of its open. The user
        // log is there, empty, exactly when it was made before the print file failed, or held.
        for (const char* column : {"event", "blocker", "messages"})
            QTest::addColumn<QString>(column);
        const char* noDir = "make log dir failed!|error, can not make log dir!";
        addRow("single, null message", "null", "", "no log information to write!");
        addRow("single, empty message", "empty", "", "no log information to write!");
        addRow("batch, no entries", "no entries", "", "received empty log list!");
        addRow("single, no log directory", "single", "log", noDir);
        addRow("batch, no log directory", "batch", "log", noDir);
        addRow("connect, no log directory", "connect", "log", noDir);
        addRow("single, user log", "single", "log/online", "open log file error2:%E");
        addRow("batch, user log", "batch", "log/online", "open log file error3:%E");
        addRow("connect, user log", "connect", "USER", "open log file error1(%P):%E");
        addRow("single, print file", "single", "log/useronline",
               "make log dir succeded!|open log file error3:%E");
        addRow("batch, print file", "batch", "PRINT",
               "make log dir succeded!|open log file error3:%E");
        addRow("connect, print file", "connect", "PRINT",
               "make log dir succeded!|open log file error1(%P):%E");
#ifndef Q_OS_WIN // QFile::link makes a shortcut there: a regular file
        addRow("single, print directory a dangling link beside the user log", "single", "DANGLING",
               "make log dir succeded!|make log dir failed!|error, can not make log dir!");
#else // held open by a viewer that does not share it
        addRow("single, user log held", "single", "HELD", "open log file error2:%E");
        addRow("connect, user log held", "connect", "HELD", "open log file error1(%P):%E");
#endif
        addRow("bcc, no log directory", "bcc", "log",
               "make log dir failed!|error, can not make "
               "bcc log dir!|make log dir failed!|error, can not make bcc log dir!");
        addRow("bcc, bcc log", "bcc", "BCC",
               "open bcc log file error3:%E|open bcc log file error3:%E");
    }

    void faults()
    {
        QFETCH(QString, event);
        QFETCH(QString, blocker);
        QFETCH(QString, messages);
        FreshWriter w(event != "connect"_s);
        const QString blocked = blocker == "USER"_s || blocker == "HELD"_s ? w.userLog
                                : blocker == "PRINT"_s                     ? w.printFile
                                : blocker == "BCC"_s
                                    ? w.tree.path("log/bccLog/bcc_log_file_0.txt"_s)
                                : blocker == "DANGLING"_s ? w.tree.path("log/useronline"_s)
                                                          : w.tree.path(blocker);
        std::shared_ptr<void> held;
        if (!blocker.isEmpty())
            QVERIFY(blocker == "HELD"_s       ? makeFile(blocked) && (held = holdFile(blocked))
                    : blocker == "DANGLING"_s ? QDir().mkpath(w.tree.path("log"_s)) &&
                                                    QFile::link(w.tree.path("nowhere"_s), blocked)
                    : blocker.toUpper() == blocker ? QDir().mkpath(blocked)
                                                   : makeFile(blocked));
        // The expected texts come from the same failing open made here. The user log's
        // path is absolute, the print file's stays relative.
        QFile file(blocker == "log/online"_s       ? w.userLog
                   : blocker == "log/useronline"_s ? w.printFile
                                                   : blocked);
        QVERIFY(!messages.contains("%E"_s) || !logfiles::openForAppend(file));
        messages.replace("%E"_s, file.errorString());
        // The user log's path as the writer builds it: the directory's absolute path, then
        // the native separator before the name ("C:/x/log/online\\user_log_file_0.txt").
        messages.replace("%P"_s,
                         blocker == "PRINT"_s
                             ? logFile(onPrint)
                             : QDir::cleanPath(QDir::currentPath() + "/../../log/online"_s) +
                                   QDir::separator() + "user_log_file_0.txt"_s);
        takeMessages();
        if (event == "connect"_s)
            w.writer.setSystermConnectState(true);
        else if (event == "bcc"_s) // port 0 refuses; the writer is gone before the next probe
            w.writer.receiveBccLogs(false, "127.0.0.1"_s, 0, "down"_s);
        else if (event == "batch"_s || event == "no entries"_s)
            w.writer.receiveUserLogs(event == "batch"_s
                                         ? QList<LogInformation>{{"T"_s, "B"_s, "l"_s, 6}}
                                         : QList<LogInformation>());
        else
            w.entry(event == "null"_s ? QString() : event == "empty"_s ? ""_s : "lost"_s);
        QCOMPARE(takeMessages(), messages.split('|'));
        QCOMPARE(QFileInfo(w.userLog).isFile(),
                 messages.contains("succeded"_s) || blocker == "HELD"_s);
        QVERIFY(readLines(w.userLog).isEmpty());
        QVERIFY(!QFileInfo(w.printFile).isFile());

        // With the fault gone, the next entry is written normally; a file let go is
        // written into.
        held.reset();
        if (!blocker.isEmpty() && blocker != "HELD"_s)
            QVERIFY(QFileInfo(blocked).isDir() && !QFileInfo(blocked).isSymLink()
                        ? QDir(blocked).removeRecursively()
                        : QFile::remove(blocked));
        w.entry("back"_s);
        QCOMPARE(readLines(w.userLog).last(), "-- T -- <B> <log> back"_s);
        QCOMPARE(readLines(w.printFile).last(), "-- T -- <B> <log> back"_s);
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
    std::optional<TestTree> _tree;
};

QTEST_GUILESS_MAIN(TestWriter)
#include "tst_writer.moc"
