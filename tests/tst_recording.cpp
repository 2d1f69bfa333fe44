// Recording of user log entries by a writer driven directly on the test thread:
// level tags and print copies, text written unchanged, and failures that drop
// one event while the writer goes on with the next.
#include "testtree.h"
#include "userlog/writer/userlogwriter.h"

#include <QtCore/QDate>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtTest/QtTest>

#include <climits>

namespace {

enum class Form
{
    Single,
    Batch
};

enum class Fault
{
    None,
    LogDirBlocked,        // a regular file at <root>/log: no log directory can be made
    UserLogNotOpenable,   // a regular file at <root>/log/online: the directory "exists"
    PrintFileNotOpenable, // a directory at the current print file's path
};

// A writer in the connected state whose online directories were removed after
// the connected banner, so each file holds only what the test writes.
struct ConnectedWriter
{
    TestTree tree;
    MessageCapture capture;
    UserLogWriter writer;

    ConnectedWriter()
    {
        writer.setSystermConnectState(true);
        QDir(tree.logDir(QStringLiteral("online"))).removeRecursively();
        QDir(tree.logDir(QStringLiteral("useronline"))).removeRecursively();
    }
    QString userLog() const
    {
        return tree.logDir(QStringLiteral("online")) + QStringLiteral("/user_log_file_0.txt");
    }
    QString printFile() const
    {
        return tree.logDir(QStringLiteral("useronline")) + QStringLiteral("/user_print_file_0_") +
               QDate::currentDate().toString(QStringLiteral("yyyy-MM-dd")) + QStringLiteral(".txt");
    }
    // The debug messages that arrived since `from` messages had been seen.
    QStringList messagesSince(int from) const { return capture.messages().mid(from); }

    void record(Form form, const QString& block, const QString& time, const QString& message,
                int level)
    {
        if (form == Form::Single)
            writer.receiveUserLogs(block, time, message, level);
        else
            writer.receiveUserLogs(QList<LogInformation>{{time, block, message, level}});
    }
};

// The text the framework reports when a log file at path cannot be opened.
QString openErrorText(const QString& path)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
        return QStringLiteral("(unexpectedly opened)");
    return file.errorString();
}

} // namespace

Q_DECLARE_METATYPE(Form)
Q_DECLARE_METATYPE(Fault)

class RecordingTest : public QObject
{
    Q_OBJECT

private slots:
    void levelTagsAndPrintCopies_data();
    void levelTagsAndPrintCopies();
    void textIsWrittenUnchanged_data();
    void textIsWrittenUnchanged();
    void failedEventIsDroppedAndWriterRecovers_data();
    void failedEventIsDroppedAndWriterRecovers();
};

void RecordingTest::levelTagsAndPrintCopies_data()
{
    QTest::addColumn<Form>("form");
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("tag");
    QTest::addColumn<bool>("printed");

    struct Row
    {
        int level;
        const char* singleTag;
        bool singlePrinted;
        const char* batchTag;
        bool batchPrinted;
    };
    const Row rows[] = {
        {2, "info", false, "info", false},     {3, "warn", false, "warn", false},
        {4, "erro", false, "erro", false},     {5, "log", false, "printinfo", true},
        {6, "log", true, "log", false},        {0, "log", false, "log", false},
        {1, "log", false, "log", false},       {7, "log", false, "log", false},
        {-1, "log", false, "log", false},      {INT_MIN, "log", false, "log", false},
        {INT_MAX, "log", false, "log", false},
    };
    for (const Row& row : rows) {
        QTest::addRow("single, level %d", row.level)
            << Form::Single << row.level << QString::fromLatin1(row.singleTag) << row.singlePrinted;
        QTest::addRow("batch, level %d", row.level)
            << Form::Batch << row.level << QString::fromLatin1(row.batchTag) << row.batchPrinted;
    }
}

void RecordingTest::levelTagsAndPrintCopies()
{
    QFETCH(Form, form);
    QFETCH(int, level);
    QFETCH(QString, tag);
    QFETCH(bool, printed);

    ConnectedWriter w;
    QVERIFY(w.tree.isValid());
    w.record(form, QStringLiteral("BLK"), QStringLiteral("12:00:01"),
             QStringLiteral("message text"), level);

    const QString line =
        QStringLiteral("-- 12:00:01 -- <BLK> <") + tag + QStringLiteral("> message text");
    QCOMPARE(readLines(w.userLog()), QStringList{line});
    // The print file is opened for every written entry, even when no line goes there.
    QVERIFY(QFileInfo(w.printFile()).isFile());
    QCOMPARE(readLines(w.printFile()), printed ? QStringList{line} : QStringList{});
}

void RecordingTest::textIsWrittenUnchanged_data()
{
    QTest::addColumn<Form>("form");
    QTest::addColumn<QString>("block");
    QTest::addColumn<QString>("time");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QStringList>("lines");

    const QString markerLine =
        QStringLiteral("-- %L1 %2 -- <%1<%2>> <info> 50%1 done, %2 left %L1 %%");
    const QStringList brokenLines = {QStringLiteral("-- T -- <B> <info> first"),
                                     QStringLiteral("second"), QString(), QStringLiteral("fourth")};
    for (Form form : {Form::Single, Form::Batch}) {
        const char* name = form == Form::Single ? "single" : "batch";
        QTest::addRow("%s: markers in block, time and message", name)
            << form << QStringLiteral("%1<%2>") << QStringLiteral("%L1 %2")
            << QStringLiteral("50%1 done, %2 left %L1 %%") << QStringList{markerLine};
        QTest::addRow("%s: line breaks in the message", name)
            << form << QStringLiteral("B") << QStringLiteral("T")
            << QStringLiteral("first\nsecond\n\nfourth") << brokenLines;
        QTest::addRow("%s: empty block and time", name)
            << form << QString() << QString() << QStringLiteral("m")
            << QStringList{QStringLiteral("--  -- <> <info> m")};
        QTest::addRow("%s: message of one blank", name)
            << form << QStringLiteral("B") << QStringLiteral("T") << QStringLiteral(" ")
            << QStringList{QStringLiteral("-- T -- <B> <info>  ")};
    }
    QTest::newRow("batch: empty message ends with the tag piece")
        << Form::Batch << QStringLiteral("B") << QStringLiteral("T") << QString()
        << QStringList{QStringLiteral("-- T -- <B> <info> ")};
}

void RecordingTest::textIsWrittenUnchanged()
{
    QFETCH(Form, form);
    QFETCH(QString, block);
    QFETCH(QString, time);
    QFETCH(QString, message);
    QFETCH(QStringList, lines);

    ConnectedWriter w;
    QVERIFY(w.tree.isValid());
    w.record(form, block, time, message, 2);
    QCOMPARE(readLines(w.userLog()), lines);
}

void RecordingTest::failedEventIsDroppedAndWriterRecovers_data()
{
    QTest::addColumn<Form>("form");
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<bool>("emptyInput");
    // "<error>" stands for the framework's text for the failed open.
    QTest::addColumn<QStringList>("expectedMessages");

    const QString dirFailed = QStringLiteral("make log dir failed!");
    const QString cannotMakeDir = QStringLiteral("error, can not make log dir!");
    const QString dirMade = QStringLiteral("make log dir succeded!");
    const QString error2 = QStringLiteral("open log file error2:<error>");
    const QString error3 = QStringLiteral("open log file error3:<error>");

    QTest::newRow("single, empty message")
        << Form::Single << Fault::None << true
        << QStringList{QStringLiteral("no log information to write!")};
    QTest::newRow("batch, empty list") << Form::Batch << Fault::None << true
                                       << QStringList{QStringLiteral("received empty log list!")};
    QTest::newRow("single, log directory cannot be made")
        << Form::Single << Fault::LogDirBlocked << false << QStringList{dirFailed, cannotMakeDir};
    QTest::newRow("batch, log directory cannot be made")
        << Form::Batch << Fault::LogDirBlocked << false << QStringList{dirFailed, cannotMakeDir};
    QTest::newRow("single, user log does not open")
        << Form::Single << Fault::UserLogNotOpenable << false << QStringList{error2};
    QTest::newRow("batch, user log does not open")
        << Form::Batch << Fault::UserLogNotOpenable << false << QStringList{error3};
    QTest::newRow("single, print file does not open")
        << Form::Single << Fault::PrintFileNotOpenable << false << QStringList{dirMade, error3};
    QTest::newRow("batch, print file does not open")
        << Form::Batch << Fault::PrintFileNotOpenable << false << QStringList{dirMade, error3};
}

void RecordingTest::failedEventIsDroppedAndWriterRecovers()
{
    QFETCH(Form, form);
    QFETCH(Fault, fault);
    QFETCH(bool, emptyInput);
    QFETCH(QStringList, expectedMessages);

    ConnectedWriter w;
    QVERIFY(w.tree.isValid());
    const QString logRoot = w.tree.root() + QStringLiteral("/log");
    const QString onlineDir = w.tree.logDir(QStringLiteral("online"));
    const QString printDir = w.tree.logDir(QStringLiteral("useronline"));
    const int printLevel = form == Form::Single ? 6 : 5;
    const QString tag = form == Form::Single ? QStringLiteral("log") : QStringLiteral("printinfo");

    QString faultPath;
    QString errorText;
    switch (fault) {
    case Fault::None:
        break;
    case Fault::LogDirBlocked:
        QVERIFY(QDir(logRoot).removeRecursively());
        faultPath = logRoot;
        QVERIFY(makeFile(w.tree.root(), QStringLiteral("log")));
        break;
    case Fault::UserLogNotOpenable:
        faultPath = onlineDir;
        QVERIFY(makeFile(logRoot, QStringLiteral("online")));
        errorText = openErrorText(w.userLog());
        break;
    case Fault::PrintFileNotOpenable:
        faultPath = w.printFile();
        QVERIFY(QDir().mkpath(faultPath));
        errorText = openErrorText(w.printFile());
        break;
    }
    for (QString& message : expectedMessages)
        message.replace(QStringLiteral("<error>"), errorText);

    const int seen = w.capture.messages().size();
    if (form == Form::Batch && emptyInput)
        w.writer.receiveUserLogs(QList<LogInformation>());
    else
        w.record(form, QStringLiteral("B"), QStringLiteral("T"),
                 emptyInput ? QString() : QStringLiteral("lost"), printLevel);
    QCOMPARE(w.messagesSince(seen), expectedMessages);

    // Only a failing print file leaves anything behind: the user log, opened
    // for appending and closed with no line.
    const bool printFault = fault == Fault::PrintFileNotOpenable;
    QCOMPARE(QFileInfo(onlineDir).isDir(), printFault);
    QCOMPARE(QFileInfo::exists(printDir), printFault);
    if (printFault) {
        QCOMPARE(fileNames(onlineDir), QStringList{QStringLiteral("user_log_file_0.txt")});
        QCOMPARE(QFileInfo(w.userLog()).size(), qint64(0));
        QCOMPARE(fileNames(printDir), QStringList());
    }

    // With the fault gone the next event is written normally.
    if (QFileInfo(faultPath).isDir())
        QVERIFY(QDir(faultPath).removeRecursively());
    else if (!faultPath.isEmpty())
        QVERIFY(QFile::remove(faultPath));
    w.record(form, QStringLiteral("B"), QStringLiteral("T"), QStringLiteral("recovered"),
             printLevel);
    const QString line = QStringLiteral("-- T -- <B> <") + tag + QStringLiteral("> recovered");
    QCOMPARE(readLines(w.userLog()), QStringList{line});
    QCOMPARE(readLines(w.printFile()), QStringList{line});
}

QTEST_GUILESS_MAIN(RecordingTest)
#include "tst_recording.moc"
