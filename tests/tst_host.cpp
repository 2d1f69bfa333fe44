// userlog-host, and a host that quits with the log thread still busy, driven end
// to end as child processes in temporary trees.
#include "testtree.h"

#include <QtCore/QDirIterator>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

namespace {

const QString hostProgram = QStringLiteral(USERLOG_HOST);
const QString examplesDir = QStringLiteral(USERLOG_EXAMPLES_DIR);

struct Run
{
    int exitCode = -1; // -1: crashed or timed out
    QString out;
    QString err;
};

Run runProgram(const QString& program, const QStringList& arguments, const QByteArray& input = {},
               const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    Run run;
    if (!process.waitForStarted(10000))
        return run;
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
    } else if (process.exitStatus() == QProcess::NormalExit) {
        run.exitCode = process.exitCode();
    }
    run.out = QString::fromLocal8Bit(process.readAllStandardOutput());
    run.err = QString::fromLocal8Bit(process.readAllStandardError());
    return run;
}

// "<directory>/<file>" to line count for every file under logRoot; the start
// date in print file names reads DATE.
QMap<QString, int> inventory(const QString& logRoot)
{
    static const QRegularExpression date(QStringLiteral("\\d{4}-\\d{2}-\\d{2}"));
    QMap<QString, int> files;
    QDirIterator it(logRoot, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        files.insert(QDir(logRoot).relativeFilePath(path).replace(date, QStringLiteral("DATE")),
                     readLines(path).size());
    }
    return files;
}

} // namespace

class TestHost : public QObject
{
    Q_OBJECT

private slots:
    void exampleShift();
    void badLine_data();
    void badLine();
    void settingsAndDefaultRoot();
    void quitWithoutLoss();
};

void TestHost::exampleShift()
{
    TestTree tree;
    QVERIFY(tree.isValid());
    const Run run = runProgram(
        hostProgram, {QStringLiteral("--root"), tree.root(), examplesDir + "/shift.scenario"});
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.out.startsWith("log tree: " + tree.root() + "\n"), qPrintable(run.out));

    const QMap<QString, int> expected{
        {"bccLog/bcc_log_file_0.txt", 6},
        {"offline/user_print_file_off", 6},
        {"offline/user_print_file_off_0_DATE.txt", 3},
        {"online/user_log_file_0.txt", 20},
        {"useronline/user_print_file_0_DATE.txt", 12},
    };
    QCOMPARE(inventory(tree.root() + "/log"), expected);

    // The link comes up, goes down against a port that now refuses, and all
    // four probes were written before the host ended.
    const QStringList bcc = readLines(tree.logDir("bccLog") + "/bcc_log_file_0.txt");
    QVERIFY(bcc.at(0).endsWith(" -- bcc connected to 127.0.0.1, message:Vision system linked"));
    QVERIFY(bcc.at(1).endsWith(
        " -- bcc connection with 127.0.0.1 is broken, message:Vision system does not answer"));
    for (int i = 2; i < 6; ++i)
        QVERIFY2(bcc.at(i).endsWith(" -- tcp lost connection with 127.0.0.1"),
                 qPrintable(bcc.at(i)));
    QVERIFY(readLines(tree.logDir("online") + "/user_log_file_0.txt")
                .last()
                .endsWith(" -- <MAIN> <info> Shift ended"));
    QVERIFY(readLines(tree.logDir("offline") + "/user_print_file_off")
                .last()
                .endsWith("** <MAIN> <erro> Program stopped: no controller"));
}

void TestHost::badLine_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("problem");
    QTest::newRow("unknown command")
        << QByteArray("frobnicate 3") << "unknown command \"frobnicate\"";
    QTest::newRow("unknown level")
        << QByteArray("entry MAIN now fatal Boom") << "unknown level \"fatal\"";
    QTest::newRow("missing message")
        << QByteArray("entry MAIN now info") << "expected: entry BLOCK TIME LEVEL MESSAGE";
    QTest::newRow("open quote") << QByteArray("entry MAIN \"09:00 info x") << "unterminated quote";
    QTest::newRow("port out of range")
        << QByteArray("bcc down 127.0.0.1 70000 gone") << "bad port \"70000\"";
    QTest::newRow("port before listen")
        << QByteArray("bcc down 127.0.0.1 $port gone") << "$port used before listen";
    QTest::newRow("end without batch") << QByteArray("end") << "end without batch";
    QTest::newRow("batch never closed")
        << QByteArray("batch\nentry MAIN now info inside") << "batch is not closed by \"end\"";
}

// The error names line 2 and its problem; line 1 is on disk, nothing after line 2 is.
void TestHost::badLine()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, problem);
    TestTree tree;
    QVERIFY(tree.isValid());
    const QByteArray scenario =
        "entry MAIN now info before\n" + line + "\nentry MAIN now info after\n";
    const Run run = runProgram(hostProgram, {QStringLiteral("--root"), tree.root()}, scenario);

    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.err.contains("userlog-host: <stdin>:2: " + problem), qPrintable(run.err));
    const QStringList log = readLines(tree.logDir("offline") + "/user_print_file_off");
    QVERIFY2(log.size() == 4 && log.last().endsWith("** <MAIN> <info> before"),
             qPrintable(log.join('\n')));
}

void TestHost::settingsAndDefaultRoot()
{
    TestTree tree;
    QVERIFY(tree.isValid());
    const QString temp = tree.root() + "/tmp";
    QVERIFY(QDir().mkpath(temp));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TMPDIR"), temp);
    const Run run =
        runProgram(hostProgram, {QStringLiteral("--custom-log-name"), "shift_b"},
                   "controller connected\nentry CELL now print Parts: 3\n", environment);
    QCOMPARE(run.exitCode, 0);

    // A fresh directory in the temporary directory, printed first; nothing
    // lands beside the caller's working directory.
    const QRegularExpressionMatch printed =
        QRegularExpression("^log tree: (" + QRegularExpression::escape(temp) + "/[^\n]+)\n")
            .match(run.out);
    QVERIFY2(printed.hasMatch(), qPrintable(run.out));
    QVERIFY(!QFileInfo::exists(tree.root() + "/log"));

    const QString root = printed.captured(1);
    QVERIFY(QFileInfo::exists(root + "/KRN/user/custom.ini"));
    const QMap<QString, int> expected{
        {"offline/shift_b_off", 3},
        {"offline/shift_b_off_0_DATE.txt", 3},
        {"online/user_log_file_0.txt", 4},
        {"useronline/shift_b_0_DATE.txt", 4},
    };
    QCOMPARE(inventory(root + "/log"), expected);
}

// The child returns from exec() without flushing; the library's quit-time flush
// must keep the process alive until every queued entry is written.
void TestHost::quitWithoutLoss()
{
    TestTree tree;
    QVERIFY(tree.isValid());
    const Run run = runProgram(QStringLiteral(USERLOG_QUIT_CHILD), {});
    QCOMPARE(run.exitCode, 0);

    const QStringList log = readLines(tree.logDir("offline") + "/user_print_file_off");
    const int banner = 3;
    const int busy = 20000;
    const int quitEntries = 5000;
    QCOMPARE(log.size(), banner + busy + quitEntries);
    QVERIFY(log.last().endsWith("<QUIT> <info> entry 4999"));

    // Proof that the log thread was still behind when the quit began.
    const QRegularExpressionMatch atQuit =
        QRegularExpression(QStringLiteral("lines at quit: (\\d+)")).match(run.out);
    QVERIFY2(atQuit.hasMatch(), qPrintable(run.out));
    QVERIFY2(atQuit.captured(1).toInt() < banner + busy + quitEntries, qPrintable(run.out));
}

QTEST_GUILESS_MAIN(TestHost)
#include "tst_host.moc"
