// A host that quits with the log thread still busy: this program itself, started
// as "tst_host quit-child".
#include "testtree.h"

#include <userlog/userlog.h>

#include <QtTest/QtTest>

#include <cstdio>

namespace {

// Quits through its event loop with a 20,000-entry batch and 500 entries still
// queued, never flushing itself. Its quit handler runs before the library's and
// prints how many lines were on disk when the quit began. The quit-time flush
// waits 5 seconds at most; under Wine a single entry takes about 3 ms, a batch
// entry far less.
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
    for (int i = 0; i < 500; ++i)
        log->recordLog("QUIT"_s, "08:01"_s, QString::number(i), 2);
    QTimer::singleShot(0, &app, &QCoreApplication::quit);
    return app.exec();
}

} // namespace

class TestHost : public QObject
{
    Q_OBJECT

private slots:
    // Only the library's quit-time flush keeps the child alive until all is written.
    void quitWithoutLoss()
    {
        TestTree tree;
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), {"quit-child"_s});
        QVERIFY(child.waitForFinished(60000) && child.exitStatus() == QProcess::NormalExit);
        QCOMPARE(child.exitCode(), 0);
        const QStringList log = readLines(tree.path("log/offline/user_print_file_off"_s));
        QCOMPARE(log.size(), 3 + 20000 + 500);
        QVERIFY(log.last().endsWith("<QUIT> <info> 499"_s));
        // Proof that the log thread was still behind when the quit began.
        const QString out = child.readAllStandardOutput();
        const QRegularExpressionMatch atQuit =
            QRegularExpression("^lines at quit: (\\d+)\r?\n"_s).match(out);
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
