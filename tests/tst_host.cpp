// userlog-host driven end to end in temporary trees, and a host that quits with
// the log thread still busy: this program itself, started as "tst_host quit-child".
#include <userlog/userlog.h>

#include "testtree.h"

#include <QtCore/QDirIterator>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

#include <cstdio>

namespace {

struct Run
{
    int exitCode = -1; // -1: crashed or timed out
    QString out, err;
};

Run run(const QString& program, const QStringList& arguments, const QByteArray& input = {})
{
    QProcess process;
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    Run result;
    if (process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit)
        result.exitCode = process.exitCode();
    else
        process.kill();
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}

// "<directory>/<file>" to line count for every file under logRoot, dates as DATE.
QMap<QString, int> inventory(const QString& logRoot)
{
    QMap<QString, int> files;
    for (QDirIterator it(logRoot, QDir::Files, QDirIterator::Subdirectories); it.hasNext();) {
        const QString path = it.next();
        files.insert(QDir(logRoot).relativeFilePath(path).replace(
                         QRegularExpression("\\d{4}-\\d\\d-\\d\\d"), "DATE"),
                     readLines(path).size());
    }
    return files;
}

// Quits through its event loop with a 20,000-entry batch and 5,000 entries still
// queued, never flushing itself. Its quit handler runs before the library's and
// prints how many lines were on disk when the quit began.
int quitChild(QCoreApplication& app)
{
    QObject::connect(&app, &QCoreApplication::aboutToQuit, [] {
        QFile file("../../log/offline/user_print_file_off");
        const int lines = file.open(QIODevice::ReadOnly) ? file.readAll().count('\n') : 0;
        std::printf("lines at quit: %d\n", lines);
        std::fflush(stdout);
    });
    UserLog* log = UserLog::logger();
    QList<LogInformation> busy;
    for (int i = 0; i < 20000; ++i)
        busy.append({"08:00", "BUSY", QString::number(i), 2});
    log->recordLog(busy);
    for (int i = 0; i < 5000; ++i)
        log->recordLog("QUIT", "08:01", QString::number(i), 2);
    QTimer::singleShot(0, &app, &QCoreApplication::quit);
    return app.exec();
}

} // namespace

class TestHost : public QObject
{
    Q_OBJECT

private slots:
    void exampleShiftWithSettings();
    void badLine_data();
    void badLine();
    void quitWithoutLoss();
};

// Without --root the tree is a fresh directory in the temporary directory, printed
// first; --custom-log-name names the print files.
void TestHost::exampleShiftWithSettings()
{
    TestTree tree;
    QVERIFY(tree.isValid());
    const QString temp = tree.root() + "/tmp";
    QVERIFY(QDir().mkpath(temp) && qputenv("TMPDIR", temp.toLocal8Bit()));
    const Run r = run(USERLOG_HOST, {"--custom-log-name", "shift_b", USERLOG_EXAMPLES});
    QCOMPARE(r.exitCode, 0);
    const QRegularExpressionMatch printed =
        QRegularExpression("^log tree: (" + QRegularExpression::escape(temp) + "/[^\n]+)\n")
            .match(r.out);
    QVERIFY2(printed.hasMatch(), qPrintable(r.out));
    QVERIFY(!QFileInfo::exists(tree.root() + "/log"));
    const QMap<QString, int> expected{{"bccLog/bcc_log_file_0.txt", 6},
                                      {"offline/shift_b_off", 6},
                                      {"offline/shift_b_off_0_DATE.txt", 3},
                                      {"online/user_log_file_0.txt", 20},
                                      {"useronline/shift_b_0_DATE.txt", 12}};
    QCOMPARE(inventory(printed.captured(1) + "/log"), expected);
}

void TestHost::badLine_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("error"); // names the bad line, here always line 2
    QTest::newRow("unknown command") << QByteArray("frob 3") << "2: unknown command \"frob\"";
    QTest::newRow("unknown level")
        << QByteArray("entry MAIN now fatal Boom") << "2: unknown level \"fatal\"";
    QTest::newRow("port before listen")
        << QByteArray("bcc down 127.0.0.1 $port gone") << "2: $port used before listen";
    QTest::newRow("batch never closed")
        << QByteArray("batch\nentry MAIN now info inside") << "2: batch is not closed by \"end\"";
}

// Line 1 is on disk, nothing after the bad line is.
void TestHost::badLine()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, error);
    TestTree tree;
    QVERIFY(tree.isValid());
    const Run r = run(USERLOG_HOST, {"--root", tree.root()},
                      "entry MAIN now info before\n" + line + "\nentry MAIN now info after\n");
    QCOMPARE(r.exitCode, 1);
    QVERIFY2(r.err.contains("userlog-host: <stdin>:" + error), qPrintable(r.err));
    const QStringList log = readLines(tree.path("log/offline/user_print_file_off"));
    QVERIFY2(log.size() == 4 && log.last().endsWith("** <MAIN> <info> before"),
             qPrintable(log.join('\n')));
}

// Only the library's quit-time flush keeps the child alive until all is written.
void TestHost::quitWithoutLoss()
{
    TestTree tree;
    QVERIFY(tree.isValid());
    const Run r = run(QCoreApplication::applicationFilePath(), {"quit-child"});
    QCOMPARE(r.exitCode, 0);
    const QStringList log = readLines(tree.path("log/offline/user_print_file_off"));
    QCOMPARE(log.size(), 3 + 20000 + 5000);
    QVERIFY(log.last().endsWith("<QUIT> <info> 4999"));
    // Proof that the log thread was still behind when the quit began.
    const QRegularExpressionMatch atQuit =
        QRegularExpression("^lines at quit: (\\d+)\n").match(r.out);
    QVERIFY2(atQuit.hasMatch() && atQuit.captured(1).toInt() < log.size(), qPrintable(r.out));
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 2 && qstrcmp(argv[1], "quit-child") == 0)
        return quitChild(app);
    TestHost test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_host.moc"
