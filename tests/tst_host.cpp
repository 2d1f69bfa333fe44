// userlog-host driven end to end in temporary trees, and a host that quits with
// the log thread still busy: this program itself, started as "tst_host quit-child".
#include "testtree.h"

#include <userlog/userlog.h>

#include <QtCore/QDirIterator>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

#include <cstdio>

namespace {

// Runs program to its end; its exit code, or -1 when it crashed or hung.
int run(QProcess& process, const QString& program, const QStringList& arguments,
        const QByteArray& input = {})
{
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    if (process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit)
        return process.exitCode();
    process.kill();
    return -1;
}

// Quits through its event loop with a 20,000-entry batch and 5,000 entries still
// queued, never flushing itself. Its quit handler runs before the library's and
// prints how many lines were on disk when the quit began.
int quitChild(QCoreApplication& app)
{
    QObject::connect(&app, &QCoreApplication::aboutToQuit, [] {
        std::printf("lines at quit: %d\n",
                    int(readLines("../../log/offline/user_print_file_off"_s).size()));
    });
    UserLog* log = UserLog::logger();
    QList<LogInformation> busy;
    for (int i = 0; i < 20000; ++i)
        busy.append({"08:00"_s, "BUSY"_s, QString::number(i), 2});
    log->recordLog(busy);
    for (int i = 0; i < 5000; ++i)
        log->recordLog("QUIT"_s, "08:01"_s, QString::number(i), 2);
    QTimer::singleShot(0, &app, &QCoreApplication::quit);
    return app.exec();
}

} // namespace

class TestHost : public QObject
{
    Q_OBJECT

private slots:
    // Without --root the tree is a fresh directory in the temporary directory, printed
    // first; --custom-log-name names the print files.
    void exampleShiftWithSettings()
    {
        TestTree tree;
        const QString temp = tree.path("tmp"_s);
        QVERIFY(QDir().mkpath(temp) && qputenv("TMPDIR", temp.toLocal8Bit()));
        QProcess host;
        QCOMPARE(run(host, USERLOG_HOST, {"--custom-log-name"_s, "shift_b"_s, USERLOG_EXAMPLES}),
                 0);
        const QString out = host.readAllStandardOutput();
        const QRegularExpressionMatch printed =
            QRegularExpression("^log tree: ("_s + QRegularExpression::escape(temp) + "/[^\n]+)\n"_s)
                .match(out);
        QVERIFY2(printed.hasMatch(), qPrintable(out));
        QMap<QString, int> lineCounts; // per file below log/, dates as DATE
        const QString logRoot = printed.captured(1) + "/log"_s;
        for (QDirIterator it(logRoot, QDir::Files, QDirIterator::Subdirectories); it.hasNext();) {
            const QString path = it.next();
            lineCounts[QDir(logRoot).relativeFilePath(path).replace(today(), "DATE"_s)] =
                readLines(path).size();
        }
        const QMap<QString, int> expected{{"bccLog/bcc_log_file_0.txt"_s, 6},
                                          {"offline/shift_b_off"_s, 6},
                                          {"offline/shift_b_off_0_DATE.txt"_s, 3},
                                          {"online/user_log_file_0.txt"_s, 20},
                                          {"useronline/shift_b_0_DATE.txt"_s, 12}};
        QCOMPARE(lineCounts, expected);
    }

    // A bad line ends the replay: line 1 is on disk, nothing after the bad line is.
    void badLine()
    {
        TestTree tree;
        QProcess host;
        QCOMPARE(run(host, USERLOG_HOST, {"--root"_s, tree.root()},
                     "entry MAIN now info before\nentry MAIN now fatal Boom\nentry MAIN now info "
                     "after\n"),
                 1);
        const QString err = host.readAllStandardError();
        QVERIFY2(err.contains("userlog-host: <stdin>:2: unknown level \"fatal\""_s),
                 qPrintable(err));
        const QStringList log = readLines(tree.path("log/offline/user_print_file_off"_s));
        QVERIFY2(log.size() == 4 && log.last().endsWith("** <MAIN> <info> before"_s),
                 qPrintable(log.join('\n')));
    }

    // Only the library's quit-time flush keeps the child alive until all is written.
    void quitWithoutLoss()
    {
        TestTree tree;
        QProcess child;
        QCOMPARE(run(child, QCoreApplication::applicationFilePath(), {"quit-child"_s}), 0);
        const QStringList log = readLines(tree.path("log/offline/user_print_file_off"_s));
        QCOMPARE(log.size(), 3 + 20000 + 5000);
        QVERIFY(log.last().endsWith("<QUIT> <info> 4999"_s));
        // Proof that the log thread was still behind when the quit began.
        const QString out = child.readAllStandardOutput();
        const QRegularExpressionMatch atQuit =
            QRegularExpression("^lines at quit: (\\d+)\n"_s).match(out);
        QVERIFY2(atQuit.hasMatch() && atQuit.captured(1).toInt() < log.size(), qPrintable(out));
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 2 && qstrcmp(argv[1], "quit-child") == 0)
        return quitChild(app);
    TestHost test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_host.moc"
