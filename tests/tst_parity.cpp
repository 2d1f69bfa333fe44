// The same scenarios through this build's userlog-host and another build's (the
// Qt 5 build's, for a Qt 6 build): both leave the same tree, byte for byte (names,
// kinds, contents, link targets), and print the same messages. Only the times the
// library takes from the clock (banners, bcc lines) are set aside, by their place
// in those lines; entries carry fixed time texts.
//
// USERLOG_OTHER_HOST names the other build's program; ./run.sh test sets it.
#include "testtree.h"

#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <functional>

namespace fs = std::filesystem;

namespace {

// How a row prepares a fresh tree (its root's native path) before the host runs.
using Setup = std::function<bool(const QByteArray& root)>;

// A tree the listing must read as Qt 5's QDir does: names that do not decode,
// a leading byte order mark, links to a file, to /dev/null, to a directory and to
// nothing, a FIFO, hidden files, and a full directory that retention trims.
bool oddListings(const QByteArray& root)
{
    const QByteArray online = root + "/log/online/", print = root + "/log/useronline/";
    std::error_code error;
    fs::create_directories(online.toStdString(), error);
    fs::create_directories(print.toStdString(), error);
    bool ok = !error;
    for (int i = 1; i <= 99; ++i)
        ok = ok && makeRawFile(online + "user_log_file_" + QByteArray::number(i) + ".txt", "old\n");
    const QByteArray date = QDate::currentDate().toString("yyyy-MM-dd"_s).toLatin1();
    const QByteArray print3 = "user_print_file_3_" + date + ".txt";
    return ok &&
           makeRawFile(online + "user_log_file_\xff"
                                "7.txt",
                       "latin-1\n") &&
           makeRawFile(online + "\xef\xbb\xbfuser_log_file_150.txt", "bom\n") &&
           makeRawFile(online + ".user_log_file_200.txt", "hidden\n") &&
           makeRawLink("/dev/null", online + "user_log_file_120.txt") &&
           makeRawLink("nowhere", online + "user_log_file_130.txt") &&
           makeRawLink("/", online + "user_log_file_140.txt") &&
           ::mkfifo((print + "pipe.txt").constData(), 0644) == 0 &&
           makeRawFile(print + print3, "print 3\n") &&
           makeRawFile(print +
                           "user_print_file_\xe9"
                           "9_" +
                           date + ".txt",
                       "latin-1 print\n") &&
           makeRawLink(print3, print + "user_print_file_4_" + date + ".txt");
}

// Latin-1 maps every byte to one character and back.
QByteArray withoutClockTimes(const QByteArray& contents)
{
    static const QRegularExpression clockTime(
        "^((?:-- |\\*\\*))\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d"
        "(?=(?: --|\\*\\*) <user log> <log> krn |"
        " -- (?:bcc connected to |bcc connection with |tcp ))"_s,
        QRegularExpression::MultilineOption);
    return QString::fromLatin1(contents).replace(clockTime, "\\1TIME"_s).toLatin1();
}

// One line per entry of the tree, sorted: the relative path (bytes as they are),
// its kind, and the contents or link target.
QList<QByteArray> snapshot(const QByteArray& root)
{
    QList<QByteArray> entries;
    std::error_code error;
    for (const fs::directory_entry& entry :
         fs::recursive_directory_iterator(root.toStdString(), error)) {
        const QByteArray path = QByteArray::fromStdString(entry.path().string()).mid(root.size());
        if (entry.is_symlink())
            entries << path + " -> " + QByteArray::fromStdString(fs::read_symlink(entry, error));
        else if (entry.is_directory())
            entries << path + "/";
        else if (!entry.is_regular_file())
            entries << path + " special";
        else if (std::ifstream file{entry.path(), std::ios::binary})
            entries << path + " = " +
                           withoutClockTimes(QByteArray::fromStdString(
                               {std::istreambuf_iterator<char>(file), {}}));
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

struct Run
{
    int exitCode = -1;
    QByteArray messages;
    QList<QByteArray> tree;
};

Run runHost(const QString& host, const QStringList& arguments, const Setup& setup)
{
    Run run;
    QTemporaryDir dir;
    const QByteArray root = QFile::encodeName(dir.path());
    if (!dir.isValid() || (setup && !setup(root)))
        return run;
    QProcess process;
    process.start(host, QStringList{"--root"_s, dir.path()} + arguments);
    if (!process.waitForFinished(-1))
        return run;
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -2;
    run.messages = process.readAllStandardError().replace(root, "ROOT");
    run.tree = snapshot(root);
    removeTree(dir.path()); // QTemporaryDir cannot remove what QDir does not list
    return run;
}

} // namespace

Q_DECLARE_METATYPE(Setup)

class TestParity : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (QStringLiteral(USERLOG_OTHER_HOST).isEmpty())
            QSKIP("no other build's userlog-host to compare with: configure with "
                  "-DUSERLOG_OTHER_HOST=<the Qt 5 build>/tools/userlog-host (./run.sh test does)");
        QVERIFY2(QFileInfo(QStringLiteral(USERLOG_OTHER_HOST)).isExecutable(),
                 USERLOG_OTHER_HOST " is not a program");
        QVERIFY(_scenarios.isValid());
    }

    void sameTrees_data()
    {
        QTest::addColumn<QString>("scenario");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<Setup>("setup");
        QTest::newRow("every line kind, both controller states, 1 MiB passed, a bcc series")
            << "entry PENDANT 07:00:01 info started\nentry PENDANT 07:00:02 warn not yet\n"
               "entry PENDANT 07:00:03 print offline print\nbatch\n"
               "entry R 07:00:04 printinfo offline report\nentry R 07:00:05 log x\nend\n"
               "controller connected\nentry MAIN 08:00:00 error e\nentry MAIN 08:00:01 -1 odd\n"
               "entry MAIN \"\" 7 empty time\nbatch\nentry R 08:00:02 printinfo report\n"
               "entry R 08:00:03 print p\nend\ncontroller lost\nentry MAIN 09:00:00 info after\n"
               "controller connected\nentry B 12:00 print "_s +
                   QString(1100000, 'f') +
                   "\nentry B 12:01 print next\nentry B 12:02 info next\n"
                   "bcc up 127.0.0.1 1 linked\nbcc down ::1 1 gone\n"
                   // The probe series ends well within the wait; the host does not wait for it.
                   "wait 4000\n"_s
            << QStringList() << Setup();
        // The name goes into the settings file as each host writes it.
        QTest::newRow("non-ASCII text and a non-ASCII custom name")
            << "entry B\u00e9 12:00 info caf\u00e9 \u20ac \U0001F600 \\t tab\n"
               "controller connected\nentry \u4e2d 12:01 print \u4e2d\u6587\n"_s
            << QStringList{"--custom-log-name"_s, "Zelle_\u00e9\u4e2d"_s} << Setup();
        QTest::newRow("odd names, links and a full directory, listed as Qt 5 lists them")
            << "controller connected\nentry B 12:00 print p\nentry B 12:01 info i\n"_s
            << QStringList() << Setup(oddListings);
    }

    void sameTrees()
    {
        QFETCH(QString, scenario);
        QFETCH(QStringList, options);
        QFETCH(Setup, setup);
        const QString path = _scenarios.filePath(QString::fromLatin1(QTest::currentDataTag()));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(scenario.toUtf8()) > 0);
        file.close();
        // Print file names carry the date: both runs on one day.
        Run other, own;
        QDate day;
        do {
            day = QDate::currentDate();
            other = runHost(QStringLiteral(USERLOG_OTHER_HOST), options + QStringList{path}, setup);
            own = runHost(QStringLiteral(USERLOG_HOST), options + QStringList{path}, setup);
        } while (QDate::currentDate() != day);
        QCOMPARE(other.exitCode, 0);
        QCOMPARE(own.exitCode, 0);
        QCOMPARE(own.messages, other.messages);
        QVERIFY(own.tree.size() > 3);
        QCOMPARE(own.tree, other.tree);
    }

private:
    QTemporaryDir _scenarios;
};

QTEST_GUILESS_MAIN(TestParity)
#include "tst_parity.moc"
