// userlog-host's scenario lines: every kind of bad line, found by the runner with
// its line number, and one bad line end to end through the program.
#include "testtree.h"

#include "runner.h"

#include <QtTest/QtTest>

class TestScenario : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(_tree.isValid()); }

    void badLines_data()
    {
        QTest::addColumn<QString>("scenario");
        QTest::addColumn<QString>("error");
        const char* levels = " (info, warn, error, printinfo, print, log or a number)";
        addRow("unknown level", "entry B now fatal x",
               qPrintable("s:1: unknown level \"fatal\""_s + levels));
        addRow("missing message", "# comment\n\nentry B now info",
               "s:3: expected: entry BLOCK TIME LEVEL MESSAGE");
        addRow("unterminated quote", "entry B now info \"open", "s:1: unterminated quote");
        addRow("$port before listen", "bcc down 127.0.0.1 $port x",
               "s:1: $port used before listen");
        addRow("port out of range", "bcc down ::1 70000 x",
               "s:1: bad port \"70000\" (0 to 65535, or $port)");
        addRow("controller inside a batch", "batch\ncontroller connected\nend",
               "s:2: only entry lines may stand between batch and end");
        addRow("unclosed batch", "entry B now info x\nbatch\nentry B now info y",
               "s:2: batch is not closed by \"end\"");
        addRow("negative wait", "wait -1", "s:1: bad wait \"-1\" (milliseconds, 0 to 600000)");
        addRow("unknown command", "dance", "s:1: unknown command \"dance\"");
    }

    void badLines()
    {
        QFETCH(QString, scenario);
        QFETCH(QString, error);
        ScenarioRunner runner(UserLog::logger());
        QTextStream in(&scenario);
        QString found;
        QVERIFY(!runner.run(in, "s"_s, found));
        QCOMPARE(found, error);
    }

#ifdef USERLOG_HOST
    // The program names the line, says what is wrong with it and exits with 1.
    void badLineEndToEnd()
    {
        QProcess host;
        host.start(USERLOG_HOST, {"--root"_s, _tree.root(), "-"_s});
        host.write("entry B now info fine\nwait -1\n");
        host.closeWriteChannel();
        QVERIFY(host.waitForFinished(60000) && host.exitStatus() == QProcess::NormalExit);
        QCOMPARE(host.exitCode(), 1);
        QCOMPARE(
            host.readAllStandardError().trimmed(),
            QByteArray("userlog-host: <stdin>:2: bad wait \"-1\" (milliseconds, 0 to 600000)"));
        QCOMPARE(withoutTimes(readLines(_tree.path("log/offline/user_print_file_off"_s))).last(),
                 "**T** <B> <info> fine"_s);
    }
#endif

private:
    TestTree _tree;
};

QTEST_GUILESS_MAIN(TestScenario)
#include "tst_scenario.moc"
