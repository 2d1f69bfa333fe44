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

#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

namespace {

// Raw names: the trees hold names that QDir does not list.
bool makeRaw(const QByteArray& path, const QByteArray& contents = {})
{
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0)
        return false;
    const bool written =
        ::write(fd, contents.constData(), size_t(contents.size())) == ssize_t(contents.size());
    return ::close(fd) == 0 && written;
}

// How a row prepares a fresh tree (its root's native path) before the host runs.
using Setup = std::function<bool(const QByteArray& root)>;

bool makeDirs(const QByteArray& root, const QStringList& dirs)
{
    for (const QString& dir : dirs)
        if (!QDir().mkpath(QFile::decodeName(root) + '/' + dir))
            return false;
    return true;
}

// A tree the listing must read as Qt 5's QDir does: names that do not decode,
// a leading byte order mark, links to a file, to /dev/null, to a directory and to
// nothing, a FIFO, hidden files, and a full directory that retention trims.
bool oddListings(const QByteArray& root)
{
    const QByteArray online = root + "/log/online/", print = root + "/log/useronline/";
    if (!makeDirs(root, {"log/online"_s, "log/useronline"_s, "log/offline"_s}))
        return false;
    bool ok = true;
    for (int i = 1; i <= 99; ++i)
        ok = ok && makeRaw(online + "user_log_file_" + QByteArray::number(i) + ".txt", "old\n");
    ok = ok &&
         makeRaw(online + "user_log_file_\xff"
                          "7.txt",
                 "latin-1\n") &&
         makeRaw(online + "\xef\xbb\xbfuser_log_file_150.txt", "bom\n") &&
         makeRaw(online + ".user_log_file_200.txt", "hidden\n") &&
         ::symlink("/dev/null", (online + "user_log_file_120.txt").constData()) == 0 &&
         ::symlink("nowhere", (online + "user_log_file_130.txt").constData()) == 0 &&
         ::symlink("/", (online + "user_log_file_140.txt").constData()) == 0 &&
         ::mkfifo((print + "pipe.txt").constData(), 0644) == 0;
    const QByteArray date = QDate::currentDate().toString("yyyy-MM-dd"_s).toLatin1();
    ok = ok && makeRaw(print + "user_print_file_3_" + date + ".txt", "print 3\n") &&
         makeRaw(print +
                     "user_print_file_\xe9"
                     "9_" +
                     date + ".txt",
                 "latin-1 print\n") &&
         ::symlink(("user_print_file_3_" + date + ".txt").constData(),
                   (print + "user_print_file_4_" + date + ".txt").constData()) == 0;
    return ok;
}

bool customName(const QByteArray& root, const QByteArray& ini)
{
    return makeDirs(root, {"KRN/user"_s}) && makeRaw(root + "/KRN/user/custom.ini", ini);
}

// One line per entry of the tree, sorted: the relative path (bytes as they are),
// its kind, and the contents or link target.
void snapshot(const QByteArray& root, const QByteArray& relative, QList<QByteArray>& entries)
{
    DIR* dir = ::opendir((root + relative).constData());
    if (dir == nullptr) {
        entries << relative + " unreadable";
        return;
    }
    QList<QByteArray> names;
    while (const dirent* entry = ::readdir(dir))
        if (qstrcmp(entry->d_name, ".") != 0 && qstrcmp(entry->d_name, "..") != 0)
            names << entry->d_name;
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    for (const QByteArray& name : names) {
        const QByteArray path = relative + '/' + name;
        const QByteArray full = root + path;
        struct stat info;
        if (::lstat(full.constData(), &info) != 0) {
            entries << path + " vanished";
        } else if (S_ISLNK(info.st_mode)) {
            QByteArray target(4096, '\0');
            const ssize_t size = ::readlink(full.constData(), target.data(), size_t(target.size()));
            entries << path + " -> " + target.left(int(std::max<ssize_t>(size, 0)));
        } else if (S_ISDIR(info.st_mode)) {
            entries << path + "/";
            snapshot(root, path, entries);
        } else if (S_ISREG(info.st_mode)) {
            QFile file(QFile::decodeName(full));
            QByteArray contents = file.open(QIODevice::ReadOnly) ? file.readAll() : "unreadable";
            // Latin-1 maps every byte to one character and back.
            static const QRegularExpression clockTime(
                "^((?:-- |\\*\\*))\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d"
                "(?=(?: --|\\*\\*) <user log> <log> krn |"
                " -- (?:bcc connected to |bcc connection with |tcp ))"_s,
                QRegularExpression::MultilineOption);
            contents = QString::fromLatin1(contents).replace(clockTime, "\\1TIME"_s).toLatin1();
            entries << path + " = " + contents;
        } else {
            entries << path + " special";
        }
    }
}

// QTemporaryDir cannot remove what QDir does not list.
void removeRaw(const QByteArray& root)
{
    ::nftw(
        root.constData(),
        [](const char* path, const struct stat*, int, FTW*) { return ::remove(path), 0; }, 16,
        FTW_DEPTH | FTW_PHYS);
}

struct Run
{
    int exitCode = -1;
    QByteArray messages;
    QList<QByteArray> tree;
};

Run runHost(const QString& host, const QString& scenario, const Setup& setup)
{
    Run run;
    QTemporaryDir dir;
    const QByteArray root = QFile::encodeName(dir.path());
    if (!dir.isValid() || (setup && !setup(root)))
        return run;
    QProcess process;
    process.setProgram(host);
    process.setArguments({"--root"_s, dir.path(), scenario});
    process.start();
    if (!process.waitForFinished(-1))
        return run;
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -2;
    run.messages = process.readAllStandardError().replace(root, "ROOT");
    snapshot(root, QByteArray(), run.tree);
    removeRaw(root);
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
        QTest::addColumn<Setup>("setup");
        const QString filler(1100000, 'f');
        QTest::newRow("every line kind, through both controller states and a bcc series")
            << "entry PENDANT 07:00:01 info started\nentry PENDANT 07:00:02 warn not yet\n"
               "entry PENDANT 07:00:03 print offline print\nbatch\n"
               "entry R 07:00:04 printinfo offline report\nentry R 07:00:05 log x\nend\n"
               "controller connected\nentry MAIN 08:00:00 error e\nentry MAIN 08:00:01 -1 odd\n"
               "entry MAIN \"\" 7 empty time\nbatch\nentry R 08:00:02 printinfo report\n"
               "entry R 08:00:03 print p\nend\ncontroller lost\nentry MAIN 09:00:00 info after\n"
               "controller connected\nbcc up 127.0.0.1 1 linked\nbcc down ::1 1 gone\n"
               // The probe series ends well within the wait; the host does not wait for it.
               "wait 4000\n"_s
            << Setup();
        QTest::newRow("non-ASCII text and a custom name written with escapes")
            << "entry B\u00e9 12:00 info caf\u00e9 \u20ac \U0001F600 \\t tab\n"
               "controller connected\nentry \u4e2d 12:01 print \u4e2d\u6587\n"_s
            << Setup([](const QByteArray& root) {
                   return customName(root, "CUSTOM_LOG_NAME=Zelle_\\xe9\\x4e2d\n");
               });
        QTest::newRow("a custom name in raw UTF-8 bytes")
            << "entry B 12:00 info x\ncontroller connected\nentry B 12:01 print y\n"_s
            << Setup([](const QByteArray& root) {
                   return customName(root, "CUSTOM_LOG_NAME=Schwei\xc3\x9f"
                                           "en\n");
               });
        QTest::newRow("a print entry past 1 MiB starts the next files")
            << "controller connected\nentry B 12:00 print "_s + filler +
                   "\nentry B 12:01 print next\nentry B 12:02 info next\n"_s
            << Setup();
        QTest::newRow("odd names, links and a full directory, listed as Qt 5 lists them")
            << "controller connected\nentry B 12:00 print p\nentry B 12:01 info i\n"_s
            << Setup(oddListings);
    }

    void sameTrees()
    {
        QFETCH(QString, scenario);
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
            other = runHost(QStringLiteral(USERLOG_OTHER_HOST), path, setup);
            own = runHost(QStringLiteral(USERLOG_HOST), path, setup);
        } while (QDate::currentDate() != day);
        QCOMPARE(other.exitCode, 0);
        QCOMPARE(own.exitCode, 0);
        QCOMPARE(own.messages, other.messages);
        QVERIFY(own.tree.size() > 3);
        for (int i = 0; i < std::min(own.tree.size(), other.tree.size()); ++i)
            QCOMPARE(own.tree.at(i), other.tree.at(i));
        QCOMPARE(own.tree.size(), other.tree.size());
    }

private:
    QTemporaryDir _scenarios;
};

QTEST_GUILESS_MAIN(TestParity)
#include "tst_parity.moc"
