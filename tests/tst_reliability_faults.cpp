// File-system faults between and during events, through the public API: log
// directories and files deleted, renamed, replaced or grown by someone else, a
// read-only file system and a full disk. Each event either succeeds or fails
// with the message its rules give (a write that fails after a successful open
// gives none), and the next event after the fault is gone is handled normally.
#include <userlog/userlog.h>

#include "testtree.h"
#include "tst_reliability_mount.h"

#include <QtCore/QDate>
#include <QtCore/QDir>
#include <QtTest/QtTest>

#include <atomic>
#include <cerrno>
#include <memory>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace {

enum class Fault
{
    LogDirDeleted,
    PrintDirDeleted,
    LogDirIsFile,
    PrintDirIsFile,
    FileDeleted,
    FileRenamedBackup,
    FileRenamedNumbered,
    FileIsDir,
    PrintFileIsDir,
    FileGrown,
    PrintFileGrown,
    ReadOnly,
    DiskFull,
};

QString today()
{
    return QDate::currentDate().toString(QStringLiteral("yyyy-MM-dd"));
}

void record(const QString& message)
{
    UserLog::logger()->recordLog(QStringLiteral("B"), QStringLiteral("T"), message, 6);
}

// "name: entry entry | name: entry" for the files of dir in name order: each of
// this test's lines shown by its message, any other line as "#", today's date
// in a name as "D".
QString summary(const QString& dir)
{
    const QString prefix = QStringLiteral("-- T -- <B> <log> ");
    QStringList files;
    for (const QString& name : fileNames(dir)) {
        QString text = QString(name).replace(today(), QStringLiteral("D")) + ':';
        for (const QString& line : readLines(dir + '/' + name))
            text += ' ' + (line.startsWith(prefix) ? line.mid(prefix.size()) : QStringLiteral("#"));
        files.append(text);
    }
    return files.join(QStringLiteral(" | "));
}

bool appendBytes(const QString& path, qint64 size)
{
    QFile file(path);
    return file.open(QIODevice::Append) &&
           file.write(QByteArray(int(size), 'x') + '\n') == size + 1;
}

// Fills the file system of dir until no block is left.
bool fillUp(const QString& dir)
{
    const int fd = ::open(QFile::encodeName(dir + QStringLiteral("/filler")).constData(),
                          O_WRONLY | O_CREAT, 0644);
    const QByteArray chunk(4096, 'f');
    while (fd >= 0 && ::write(fd, chunk.constData(), size_t(chunk.size())) > 0) {
    }
    const bool full = errno == ENOSPC;
    ::close(fd);
    return full;
}

} // namespace

Q_DECLARE_METATYPE(Fault)

class ReliabilityFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void faultBetweenEvents_data();
    void faultBetweenEvents();
    void fileGrownWhileWriting();
    void directoriesDeletedWhileWriting();

private:
    std::unique_ptr<TestTree> _startTree;
};

void ReliabilityFaults::initTestCase()
{
    _startTree = std::make_unique<TestTree>();
    UserLog::logger()->connectedWithController(true);
    QVERIFY(UserLog::logger()->flush(60000));
}

void ReliabilityFaults::cleanupTestCase()
{
    _startTree.reset();
}

void ReliabilityFaults::faultBetweenEvents_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<QStringList>("messages"); // from the fault on
    QTest::addColumn<QString>("online");       // summary() of log/online at the end
    QTest::addColumn<QString>("print");        // summary() of log/useronline at the end
    const QString made = QStringLiteral("make log dir succeded!");
    const QString user = QStringLiteral("user_log_file_0.txt:");
    const QString print = QStringLiteral("user_print_file_0_D.txt:");
    // The entries are "before" (no fault), "during" (the fault in place) and
    // "after" (the fault removed); each goes to both files.
    QTest::newRow("log directory deleted")
        << Fault::LogDirDeleted << QStringList{made} << user + " during after"
        << print + " before during after";
    QTest::newRow("print directory deleted")
        << Fault::PrintDirDeleted << QStringList{} << user + " before during after"
        << print + " during after";
    QTest::newRow("log directory replaced by a file")
        << Fault::LogDirIsFile << QStringList{"open log file error2:Not a directory", made}
        << user + " after" << print + " before after";
    QTest::newRow("print directory replaced by a file")
        << Fault::PrintDirIsFile << QStringList{"open log file error3:Not a directory"}
        << user + " before after" << print + " after";
    QTest::newRow("current file deleted")
        << Fault::FileDeleted << QStringList{} << user + " during after"
        << print + " before during after";
    // A renamed file still counts with the index its new name reads as.
    QTest::newRow("current file renamed to a backup")
        << Fault::FileRenamedBackup << QStringList{}
        << user + " during after | user_log_file_0.txt.bak: before"
        << print + " before during after";
    QTest::newRow("current file renamed with another number")
        << Fault::FileRenamedNumbered << QStringList{}
        << "archive_7.log: before | user_log_file_7.txt: during after"
        << print + " before during after";
    QTest::newRow("current file replaced by a directory")
        << Fault::FileIsDir << QStringList{"open log file error2:Is a directory"} << user + " after"
        << print + " before after";
    QTest::newRow("current print file replaced by a directory")
        << Fault::PrintFileIsDir << QStringList{"open log file error3:Is a directory"}
        << user + " before after" << print + " after";
    QTest::newRow("current file grown past the limit")
        << Fault::FileGrown << QStringList{}
        << user + " before # | user_log_file_1.txt: during after" << print + " before during after";
    QTest::newRow("current print file grown past the limit")
        << Fault::PrintFileGrown << QStringList{} << user + " before during after"
        << print + " before # | user_print_file_1_D.txt: during after";
    QTest::newRow("read-only file system")
        << Fault::ReadOnly << QStringList{"open log file error2:Read-only file system"}
        << user + " before after" << print + " before after";
    // The files are new, so the opens succeed and only the writes fail: silently.
    QTest::newRow("full disk") << Fault::DiskFull << QStringList{} << user + " after"
                               << print + " after";
}

void ReliabilityFaults::faultBetweenEvents()
{
    QFETCH(Fault, fault);
    QFETCH(QStringList, messages);
    QFETCH(QString, online);
    QFETCH(QString, print);
    TestTree tree;
    QVERIFY(tree.isValid());
    std::unique_ptr<TmpfsMount> mount;
    if (fault == Fault::ReadOnly || fault == Fault::DiskFull) {
        mount = std::make_unique<TmpfsMount>(tree.root() + QStringLiteral("/log"), 1 << 20);
        if (!mount->isMounted())
            QSKIP(qPrintable(mount->error()));
    }
    MessageCapture capture;
    const QString logDir = tree.logDir(QStringLiteral("online"));
    const QString printDir = tree.logDir(QStringLiteral("useronline"));
    const QString current = logDir + QStringLiteral("/user_log_file_0.txt");
    const QString currentPrint =
        printDir + QStringLiteral("/user_print_file_0_") + today() + ".txt";
    record(QStringLiteral("before"));
    QVERIFY(UserLog::logger()->flush(60000));
    const int from = capture.messages().size();

    bool applied = false;
    switch (fault) {
    case Fault::LogDirDeleted:
        applied = QDir(logDir).removeRecursively();
        break;
    case Fault::PrintDirDeleted:
        applied = QDir(printDir).removeRecursively();
        break;
    case Fault::LogDirIsFile:
        applied = QDir(logDir).removeRecursively() && makeFile(tree.logDir(QString()), "online");
        break;
    case Fault::PrintDirIsFile:
        applied =
            QDir(printDir).removeRecursively() && makeFile(tree.logDir(QString()), "useronline");
        break;
    case Fault::FileDeleted:
        applied = QFile::remove(current);
        break;
    case Fault::FileRenamedBackup:
        applied = QFile::rename(current, current + QStringLiteral(".bak"));
        break;
    case Fault::FileRenamedNumbered:
        applied = QFile::rename(current, logDir + QStringLiteral("/archive_7.log"));
        break;
    case Fault::FileIsDir:
        applied = QFile::remove(current) && QDir().mkdir(current);
        break;
    case Fault::PrintFileIsDir:
        applied = QFile::remove(currentPrint) && QDir().mkdir(currentPrint);
        break;
    case Fault::FileGrown:
        applied = appendBytes(current, 1 << 20);
        break;
    case Fault::PrintFileGrown:
        applied = appendBytes(currentPrint, 1 << 20);
        break;
    case Fault::ReadOnly:
        applied = mount->remount(true);
        break;
    case Fault::DiskFull:
        applied =
            QFile::remove(current) && QFile::remove(currentPrint) && fillUp(tree.logDir(QString()));
        break;
    }
    QVERIFY2(applied, mount ? qPrintable(mount->error()) : "the fault could not be made");
    record(QStringLiteral("during"));
    QVERIFY(UserLog::logger()->flush(60000));

    bool removed = true;
    switch (fault) {
    case Fault::LogDirIsFile:
        removed = QFile::remove(logDir);
        break;
    case Fault::PrintDirIsFile:
        removed = QFile::remove(printDir);
        break;
    case Fault::FileIsDir:
        removed = QDir().rmdir(current);
        break;
    case Fault::PrintFileIsDir:
        removed = QDir().rmdir(currentPrint);
        break;
    case Fault::ReadOnly:
        removed = mount->remount(false);
        break;
    case Fault::DiskFull:
        removed = QFile::remove(tree.logDir(QStringLiteral("filler")));
        break;
    default:
        break;
    }
    QVERIFY(removed);
    record(QStringLiteral("after"));
    QVERIFY(UserLog::logger()->flush(60000));
    QCOMPARE(capture.messages().mid(from), messages);
    QCOMPARE(summary(logDir), online);
    QCOMPARE(summary(printDir), print);
}

// Another program appends to the current user log while entries arrive: the
// files roll over as it grows, and every entry is still there, whole and in order.
void ReliabilityFaults::fileGrownWhileWriting()
{
    TestTree tree;
    const QString dir = tree.logDir(QStringLiteral("online"));
    QVERIFY(makeFile(dir, QStringLiteral("user_log_file_0.txt")));
    const auto byIndex = [&dir] {
        QMap<int, QString> files;
        for (const QString& name : fileNames(dir))
            files.insert(name.section('_', 3).section('.', 0, 0).toInt(), dir + '/' + name);
        return files;
    };
    // The other program appends 8 KiB lines to the highest file while the log
    // thread works through the entries queued just before.
    QStringList expected;
    for (int round = 0; round < 20; ++round) {
        for (int i = 0; i < 100; ++i) {
            expected.append(QStringLiteral("-- T -- <B> <log> ") +
                            QString::number(expected.size()));
            record(QString::number(expected.size() - 1));
        }
        for (int i = 0; i < 32; ++i) {
            const int fd =
                ::open(QFile::encodeName(byIndex().last()).constData(), O_WRONLY | O_APPEND);
            const QByteArray line = QByteArray(8191, '#') + '\n';
            QVERIFY(::write(fd, line.constData(), size_t(line.size())) == line.size());
            ::close(fd);
        }
        QVERIFY(UserLog::logger()->flush(60000));
    }
    QStringList entries;
    const QMap<int, QString> files = byIndex();
    for (const QString& path : files) {
        for (const QString& line : readLines(path)) {
            if (!line.startsWith('#'))
                entries.append(line);
        }
    }
    QCOMPARE(entries, expected);
    QVERIFY2(files.size() > 4, "the other program did not make the files roll over");
}

// The log directories vanish again and again while entries arrive: entries may
// be lost, each with one of the messages of the rules, and the writer goes on.
void ReliabilityFaults::directoriesDeletedWhileWriting()
{
    TestTree tree;
    MessageCapture capture;
    std::atomic<bool> stop{false};
    std::thread deleter([&] {
        for (int i = 0; i < 100000 && !stop; ++i) {
            QDir(tree.logDir(QStringLiteral("online"))).removeRecursively();
            QDir(tree.logDir(QStringLiteral("useronline"))).removeRecursively();
        }
    });
    for (int i = 0; i < 2000; ++i)
        record(QString::number(i));
    const bool flushed = UserLog::logger()->flush(120000);
    stop = true;
    deleter.join();
    QVERIFY(flushed);
    const QStringList allowed{"make log dir succeded!", "make log dir failed!",
                              "error, can not make log dir!",
                              "open log file error2:No such file or directory",
                              "open log file error3:No such file or directory"};
    for (const QString& message : capture.messages())
        QVERIFY2(allowed.contains(message), qPrintable(message));
    record(QStringLiteral("after"));
    QVERIFY(UserLog::logger()->flush(60000));
    QVERIFY(summary(tree.logDir(QStringLiteral("online"))).endsWith(QStringLiteral(" after")));
    QVERIFY(summary(tree.logDir(QStringLiteral("useronline"))).endsWith(QStringLiteral(" after")));
}

QTEST_GUILESS_MAIN(ReliabilityFaults)
#include "tst_reliability_faults.moc"
