// User log recording: a writer driven directly (level tags, print copies, text kept as it
// is, failures that drop one event), and the host's view through UserLog (entries around
// queued connection reports, several host threads). One process per function.
#include "testtree.h"
#include "userlog/writer/userlogwriter.h"

#include <QtCore/QDate>
#include <QtCore/QDir>
#include <QtCore/QRegularExpression>
#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <climits>
#include <memory>

namespace {

QString operator""_s(const char* text, size_t size)
{
    return QString::fromUtf8(text, int(size));
}

QString today()
{
    return QDate::currentDate().toString("yyyy-MM-dd"_s);
}

// The file's lines with the writer's own banner time stamps shown as "<now>".
QStringList linesWithoutClock(const QString& path)
{
    static const QRegularExpression stamp("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d"_s);
    return readLines(path).replaceInStrings(stamp, "<now>"_s);
}

// A connected writer whose log tree was removed after the connected banner, so
// each file holds only what the test writes.
struct ConnectedWriter
{
    TestTree tree;
    MessageCapture capture;
    UserLogWriter writer;

    ConnectedWriter()
    {
        writer.setSystermConnectState(true);
        QDir(tree.root() + "/log"_s).removeRecursively();
    }
    QString userLog() const { return tree.logDir("online/user_log_file_0.txt"_s); }
    QString printFile() const
    {
        return tree.logDir("useronline/user_print_file_0_"_s) + today() + ".txt"_s;
    }
    void record(bool batch, const QString& block, const QString& time, const QString& message,
                int level)
    {
        if (batch)
            writer.receiveUserLogs(QList<LogInformation>{{time, block, message, level}});
        else
            writer.receiveUserLogs(block, time, message, level);
    }
};

} // namespace

class RecordingTest : public QObject
{
    Q_OBJECT

private slots:
    void levelTagsAndPrintCopies_data();
    void levelTagsAndPrintCopies();
    void failedEventIsDroppedAndWriterRecovers_data();
    void failedEventIsDroppedAndWriterRecovers();
    void entriesFollowQueuedConnectionReports();
    void concurrentHostThreadsLoseNothing();
};

void RecordingTest::levelTagsAndPrintCopies_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("singleTag");
    QTest::addColumn<QString>("batchTag");
    QTest::addColumn<QString>("printed"); // the entry copied to the print file, if any
    const struct
    {
        int level;
        const char *single, *batch, *printed;
    } rows[] = {{2, "info", "info", ""},      {3, "warn", "warn", ""},    {4, "erro", "erro", ""},
                {5, "log", "printinfo", "b"}, {6, "log", "log", "s"},     {0, "log", "log", ""},
                {1, "log", "log", ""},        {7, "log", "log", ""},      {-1, "log", "log", ""},
                {INT_MIN, "log", "log", ""},  {INT_MAX, "log", "log", ""}};
    for (const auto& row : rows)
        QTest::addRow("level %d", row.level)
            << row.level << QString::fromUtf8(row.single) << QString::fromUtf8(row.batch)
            << QString::fromUtf8(row.printed);
}

// A single entry "s", then a batch entry "b", of the same level; markers, edge blanks
// and line breaks in every field are written as they are.
void RecordingTest::levelTagsAndPrintCopies()
{
    QFETCH(int, level);
    QFETCH(QString, singleTag);
    QFETCH(QString, batchTag);
    QFETCH(QString, printed);
    ConnectedWriter w;
    QVERIFY(w.tree.isValid());
    for (const QString& form : {"s"_s, "b"_s})
        w.record(form == "b"_s, "%1<%2>"_s, "%L1 %2"_s, " %1 50% \n%2 %L1 "_s + form, level);

    const auto entry = [](const QString& tag, const QString& form) {
        return QStringList{"-- %L1 %2 -- <%1<%2>> <"_s + tag + ">  %1 50% "_s, "%2 %L1 "_s + form};
    };
    const QStringList single = entry(singleTag, "s"_s), batch = entry(batchTag, "b"_s);
    QCOMPARE(readLines(w.userLog()), single + batch);
    // The print file is opened for every entry, even when no line goes there.
    QVERIFY(QFileInfo(w.printFile()).isFile());
    QCOMPARE(readLines(w.printFile()), printed.isEmpty()  ? QStringList()
                                       : printed == "s"_s ? single
                                                          : batch);
}

void RecordingTest::failedEventIsDroppedAndWriterRecovers_data()
{
    QTest::addColumn<bool>("batch");
    QTest::addColumn<QString>("blocker"); // made a file; "print": the print file a directory
    QTest::addColumn<QStringList>("messages");
    const QStringList noDir{"make log dir failed!"_s, "error, can not make log dir!"_s};
    const QStringList noPrint{"make log dir succeded!"_s, "open log file error3:Is a directory"_s};
    QTest::newRow("single, empty message")
        << false << QString() << QStringList{"no log information to write!"_s};
    QTest::newRow("batch, empty list")
        << true << QString() << QStringList{"received empty log list!"_s};
    QTest::newRow("single, no log dir") << false << "log"_s << noDir;
    QTest::newRow("batch, no log dir") << true << "log"_s << noDir;
    QTest::newRow("single, user log")
        << false << "log/online"_s << QStringList{"open log file error2:Not a directory"_s};
    QTest::newRow("batch, user log")
        << true << "log/online"_s << QStringList{"open log file error3:Not a directory"_s};
    QTest::newRow("single, print file") << false << "print"_s << noPrint;
    QTest::newRow("batch, print file") << true << "print"_s << noPrint;
}

void RecordingTest::failedEventIsDroppedAndWriterRecovers()
{
    QFETCH(bool, batch);
    QFETCH(QString, blocker);
    QFETCH(QStringList, messages);
    ConnectedWriter w;
    QVERIFY(w.tree.isValid());
    const bool printFault = blocker == "print"_s;
    const QFileInfo path(printFault ? w.printFile() : w.tree.root() + "/"_s + blocker);
    if (!blocker.isEmpty())
        QVERIFY(printFault ? QDir().mkpath(path.filePath())
                           : makeFile(path.path(), path.fileName()));
    const int seen = w.capture.messages().size();
    if (batch && blocker.isEmpty())
        w.writer.receiveUserLogs(QList<LogInformation>());
    else
        w.record(batch, "B"_s, "T"_s, blocker.isEmpty() ? QString() : "lost"_s, batch ? 5 : 6);
    QCOMPARE(w.capture.messages().mid(seen), messages);
    // Nothing written: at most an empty user log, opened before the print file failed.
    QCOMPARE(fileNames(w.tree.logDir("online"_s)),
             printFault ? QStringList{"user_log_file_0.txt"_s} : QStringList());
    QCOMPARE(QFileInfo(w.userLog()).size(), qint64(0));
    QCOMPARE(fileNames(w.tree.logDir("useronline"_s)), QStringList());

    // With the fault gone the next event is written normally.
    if (!blocker.isEmpty())
        QVERIFY(printFault ? QDir(path.filePath()).removeRecursively()
                           : QFile::remove(path.filePath()));
    w.record(batch, "B"_s, "T"_s, "back"_s, batch ? 5 : 6);
    const QString line = "-- T -- <B> <"_s + (batch ? "printinfo"_s : "log"_s) + "> back"_s;
    QCOMPARE(readLines(w.userLog()), QStringList{line});
    QCOMPARE(readLines(w.printFile()), QStringList{line});
}

void RecordingTest::entriesFollowQueuedConnectionReports()
{
    TestTree tree;
    QVERIFY(tree.isValid());
    UserLog* log = UserLog::logger();
    const auto single = [log](const QString& time) { log->recordLog("M"_s, time, "s"_s, 6); };
    const auto batch = [log](const QString& time) { log->recordLog({{time, "M"_s, "b"_s, 5}}); };
    // Posted back to back: each entry must use the state in force when its event
    // runs, whatever the log thread has done by the time it is queued.
    single("T1"_s);
    batch("T2"_s);
    log->connectedWithController(true);
    single("T3"_s);
    log->recordLog({{"T4"_s, "M"_s, "b"_s, 5}, {"T5"_s, "M"_s, QString(), 2}});
    log->connectedWithController(false);
    single("T6"_s);
    batch("T7"_s);
    QVERIFY(log->flush(10000));

    const QString sep = "//---------------------------------"_s;
    const QString boot = "**<now>** <user log> <log> krn user log systerm booted up!"_s;
    const QString up = "-- <now> -- <user log> <log> krn system connected with controller!"_s;
    const QString lost = "**<now>** <user log> <log> krn system lost connection with controller!"_s;
    const QString t1 = "**T1** <M> <log> s"_s, t2 = "**T2** <M> <printinfo> b"_s;
    const QString t3 = "-- T3 -- <M> <log> s"_s, t4 = "-- T4 -- <M> <printinfo> b"_s;
    const QString t6 = "**T6** <M> <log> s"_s, t7 = "**T7** <M> <printinfo> b"_s;
    const QString offline = tree.logDir("offline/"_s);
    const QString offlinePrint = "user_print_file_off_0_"_s + today() + ".txt"_s;
    QCOMPARE(fileNames(offline), (QStringList{"user_print_file_off"_s, offlinePrint}));
    QCOMPARE(linesWithoutClock(offline + "user_print_file_off"_s),
             (QStringList{sep, boot, sep, t1, t2, t6, t7}));
    QCOMPARE(linesWithoutClock(offline + offlinePrint), (QStringList{sep, boot, sep, t1, t2}));
    QCOMPARE(fileNames(tree.logDir("online"_s)), QStringList{"user_log_file_0.txt"_s});
    QCOMPARE(linesWithoutClock(tree.logDir("online/user_log_file_0.txt"_s)),
             (QStringList{sep, up, sep, t3, t4, "-- T5 -- <M> <info> "_s, sep, lost, sep}));
    // After the loss print entries stay in the online print file.
    const QString onlinePrint = "user_print_file_0_"_s + today() + ".txt"_s;
    QCOMPARE(fileNames(tree.logDir("useronline"_s)), QStringList{onlinePrint});
    QCOMPARE(linesWithoutClock(tree.logDir("useronline/"_s) + onlinePrint),
             (QStringList{sep, up, sep, t3, t4, sep, lost, sep, t6, t7}));
}

// Each round a thread logs one single entry and a batch of two, all print entries.
void RecordingTest::concurrentHostThreadsLoseNothing()
{
    TestTree tree;
    QVERIFY(tree.isValid());
    UserLog* log = UserLog::logger();
    constexpr int threadCount = 4, perThread = 180;
    std::unique_ptr<QThread> threads[threadCount];
    for (int t = 0; t < threadCount; ++t) {
        threads[t].reset(QThread::create([log, t] {
            const QString block = "h"_s + QString::number(t);
            for (int seq = 0; seq < perThread; seq += 3) {
                log->recordLog(block, "T"_s, QString::number(seq), 6);
                log->recordLog({{"T"_s, block, QString::number(seq + 1), 5},
                                {"T"_s, block, QString::number(seq + 2), 5}});
            }
        }));
        threads[t]->start();
    }
    for (auto& thread : threads)
        QVERIFY(thread->wait(30000));
    QVERIFY(log->flush(30000));

    const QStringList lines = readLines(tree.logDir("offline/user_print_file_off"_s)).mid(3);
    QCOMPARE(lines.size(), threadCount * perThread);
    for (int t = 0; t < threadCount; ++t) {
        QStringList want;
        for (int seq = 0; seq < perThread; ++seq)
            want << "**T** <h%1> <%2> %3"_s.arg(t).arg(seq % 3 ? "printinfo"_s : "log"_s).arg(seq);
        QCOMPARE(lines.filter("<h%1>"_s.arg(t)), want);
    }
    const QString printFile = tree.logDir("offline/user_print_file_off_0_"_s) + today() + ".txt"_s;
    QCOMPARE(readLines(printFile).mid(3), lines);
}

QTEST_GUILESS_MAIN(RecordingTest)
#include "tst_recording.moc"
