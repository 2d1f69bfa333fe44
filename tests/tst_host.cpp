// A host that quits with the log thread still behind: this program itself,
// started as "tst_host child <mode> [<stall seconds>]", the last lowering the
// quit's stall limit from the 5 s every host gets. The child's log thread meets
// refused entries (empty messages) on its way; the debug message each one
// prints is caught here and held, so how long the log thread is busy or stalled
// never depends on the machine's speed.
#include "testtree.h"

#include <userlog/userlog.h>

#include <QtTest/QtTest>

#include <atomic>
#include <cstdio>
#include <thread>

namespace {

// What the log thread does at each refused entry, in the order they are posted.
enum class Cue
{
    WaitForQuit, // until the child's own quit handler has run
    TakeAQuarterSecond,
    Hang, // for good, as on a hung network share
};

// A plain array: nothing is freed at exit while a hung log thread may still read it.
Cue cues[16];
int cueCount = 0;
std::atomic<int> nextCue{0};
QSemaphore quitBegan;

void onMessage(QtMsgType, const QMessageLogContext&, const QString& message)
{
    if (message != "no log information to write!"_s) {
        std::fprintf(stderr, "%s\n", qPrintable(message));
        return;
    }
    switch (cues[nextCue++]) {
    case Cue::WaitForQuit:
        quitBegan.acquire();
        break;
    case Cue::TakeAQuarterSecond:
        QThread::msleep(250);
        break;
    case Cue::Hang:
        for (;;)
            QThread::sleep(60);
    }
}

void refuse(Cue cue)
{
    cues[cueCount++] = cue;
    UserLog::logger()->recordLog("CUE"_s, "T"_s, QString(), 2);
}

void entries(int from, int to)
{
    for (int i = from; i < to; ++i)
        UserLog::logger()->recordLog("HOST"_s, "T"_s, QString::number(i), 2);
}

// Posts a mode's calls behind a first cue that holds the log thread until the
// quit has begun, and quits through the event loop without flushing.
int quitChild(QCoreApplication& app, const QString& mode, int stallSeconds)
{
    qInstallMessageHandler(onMessage);
    if (stallSeconds > 0)
        app.setProperty("varnor.userlog.testQuitStallSeconds", stallSeconds);
    // Connected before the library's own handler, so it runs first.
    QObject::connect(&app, &QCoreApplication::aboutToQuit, [] {
        std::printf("lines at quit: %d\n",
                    int(readLines("../../log/offline/user_print_file_off"_s).size()));
        std::fflush(stdout);
        quitBegan.release();
    });
    const auto post = [&mode] {
        refuse(Cue::WaitForQuit);
        if (mode == "worker"_s) {
            QList<LogInformation> batch;
            for (int i = 0; i < 20000; ++i)
                batch.append({"T"_s, "BATCH"_s, QString::number(i), 2});
            UserLog::logger()->recordLog(batch);
            entries(0, 500);
        } else if (mode == "busy"_s) {
            for (int i = 0; i < 12; ++i) {
                entries(i, i + 1);
                refuse(Cue::TakeAQuarterSecond);
            }
        } else {
            entries(0, 3);
            refuse(Cue::Hang);
            entries(3, 7);
        }
    };
    if (mode == "worker"_s)
        std::thread(post).join(); // the first logger() call, on a thread gone before the quit
    else
        post();
    QTimer::singleShot(0, &app, &QCoreApplication::quit);
    return app.exec();
}

} // namespace

class TestHost : public QObject
{
    Q_OBJECT

private slots:
    void quit_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<int>("stallSeconds"); // 0: the limit every host gets
        QTest::addColumn<int>("entriesWritten");
        QTest::addColumn<QString>("lastLine");
        QTest::addColumn<QString>("stallMessage");
        QTest::newRow("first call on a worker thread that ended: everything written")
            << "worker"_s << 0 << 20500 << "**T** <HOST> <info> 499"_s << QString();
        QTest::newRow("busy for 3 s, never 1 s without progress: everything written")
            << "busy"_s << 1 << 12 << "**T** <HOST> <info> 11"_s << QString();
        QTest::newRow("stalled: given up after 1 s, the limit and the calls left told")
            << "stall"_s << 1 << 3 << "**T** <HOST> <info> 2"_s
            << "log thread stalled for 1 s at quit: 5 calls left unwritten"_s;
    }

    void quit()
    {
        QFETCH(QString, mode);
        QFETCH(int, stallSeconds);
        QFETCH(int, entriesWritten);
        QFETCH(QString, lastLine);
        QFETCH(QString, stallMessage);
        TestTree tree;
        QProcess child;
        QElapsedTimer clock;
        clock.start();
        child.start(QCoreApplication::applicationFilePath(),
                    {"child"_s, mode, QString::number(stallSeconds)});
        QVERIFY(child.waitForFinished(120000) && child.exitStatus() == QProcess::NormalExit);
        qInfo("%s: the child ran %lld ms", qPrintable(mode), clock.elapsed());
        const QString out = child.readAllStandardOutput(), err = child.readAllStandardError();
        QCOMPARE(child.exitCode(), 0);
        const QStringList log = readLines(tree.path("log/offline/user_print_file_off"_s));
        QCOMPARE(log.size(), 3 + entriesWritten);
        QCOMPARE(log.last(), lastLine);
        // Nothing but the start-up banner was on disk when the quit began.
        QVERIFY2(QRegularExpression("^lines at quit: 3\r?\n$"_s).match(out).hasMatch(),
                 qPrintable(out));
        const QStringList messages = err.split(QRegularExpression("\r?\n"_s), Qt::SkipEmptyParts);
        QCOMPARE(messages.filter("stalled"_s),
                 stallMessage.isEmpty() ? QStringList() : QStringList{stallMessage});
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if ((argc == 3 || argc == 4) && qstrcmp(argv[1], "child") == 0)
        return quitChild(app, QString::fromLocal8Bit(argv[2]),
                         argc == 4 ? QByteArray(argv[3]).toInt() : 0);
    TestHost test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_host.moc"
