// File naming, resolution and retention of the log directories, white-box.
#include "testtree.h"
#include "tst_logfiles_support.h"
#include "userlog/writer/logfiles.h"
#include "userlog/writer/userlogwriter.h"

#include <QtCore/QDir>
#include <QtCore/QProcess>
#include <QtTest/QtTest>

#include <memory>

namespace {

const QString logDir = "../../log/dir"_s;

// Space-separated names; "u_[0-99].txt" stands for u_0.txt to u_99.txt.
QStringList expand(const QString& names)
{
    static const QRegularExpression range("\\[(\\d+)-(\\d+)\\]"_s);
    QStringList result;
    for (const QString& name : names.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        const QRegularExpressionMatch m = range.match(name);
        if (!m.hasMatch())
            result << name;
        for (int i = m.captured(1).toInt(); m.hasMatch() && i <= m.captured(2).toInt(); ++i)
            result << QString(name).replace(m.capturedStart(), m.capturedLength(),
                                            QString::number(i));
    }
    return result;
}

// The file names that entries stand for, sorted like allFiles().
QStringList fileNamesOf(const QString& entries)
{
    QStringList files;
    for (const QString& entry : expand(entries)) {
        if (!entry.endsWith(QLatin1Char('/')))
            files << entry.section(QLatin1Char('='), 0, 0);
    }
    files.sort();
    return files;
}

// Makes entries in dir: "name" is an empty file, "name=size" one of that size
// ("name=full" one byte over 1 MiB), "name/" a directory. Returns the file names.
QStringList makeEntries(const QString& dir, const QString& entries)
{
    QDir().mkpath(dir);
    for (const QString& entry : expand(entries)) {
        if (entry.endsWith(QLatin1Char('/')))
            QDir(dir).mkdir(entry);
        else
            makeFile(dir, entry.section(QLatin1Char('='), 0, 0),
                     entry.endsWith("=full"_s) ? 1048577
                                               : entry.section(QLatin1Char('='), 1).toLongLong());
    }
    return fileNamesOf(entries);
}

// The files of dir, hidden ones included.
QStringList allFiles(const QString& dir)
{
    return QDir(dir).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

QString absoluteDir(const QString& relative)
{
    return QDir::cleanPath(QDir::currentPath() + QLatin1Char('/') + relative);
}

} // namespace

class TestLogFiles : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void indexOfLogFile_data();
    void indexOfLogFile();
    void datedNames_data();
    void datedNames();
    void newDirectory_data();
    void newDirectory();
    void indexedResolution_data();
    void indexedResolution();
    void indexedRetentionTiesOldestModifiedFirst();
    void indexedRetentionStopsWhenDeleteFails();
    void datedResolution_data();
    void datedResolution();
    void datedResolutionTrimsBeforeListing();
    void deleteOldestFiles_data();
    void deleteOldestFiles();
    void deleteOldestFilesMissingFolder();
    void deleteOldestFilesDeleteFails();

private:
    QString dir() const { return _tree->logDir("dir"_s); }
    // Bind-mounts a file over dir/name, so that unlinking it fails with EBUSY.
    bool bindMount(const QString& name);
    // Last-read times ten days ago, those of older a day earlier still.
    void setReadTimes(const QStringList& names, const QStringList& older);

    std::unique_ptr<TestTree> _tree;
    QStringList _mounts;
    QString _mountError;
};

void TestLogFiles::init()
{
    _tree.reset(new TestTree);
    QVERIFY(_tree->isValid());
}

void TestLogFiles::cleanup()
{
    for (const QString& target : qAsConst(_mounts))
        QProcess::execute("umount"_s, {target});
    _mounts.clear();
    _tree.reset();
}

bool TestLogFiles::bindMount(const QString& name)
{
    const QString target = dir() + QLatin1Char('/') + name;
    makeFile(_tree->root(), "source"_s);
    const int exitCode =
        QProcess::execute("mount"_s, {"--bind"_s, _tree->root() + "/source"_s, target});
    if (exitCode == 0)
        _mounts << target;
    _mountError = "mount --bind failed with %1 (-2: not found); it needs root"_s.arg(exitCode);
    return exitCode == 0;
}

void TestLogFiles::setReadTimes(const QStringList& names, const QStringList& older)
{
    const QDateTime base = QDateTime::currentDateTime().addDays(-10);
    for (const QString& name : names) {
        const QDateTime read = older.contains(name) ? base.addDays(-1) : base;
        QVERIFY(setFileTimes(dir() + QLatin1Char('/') + name, read, base));
    }
}

void TestLogFiles::indexOfLogFile_data()
{
    columns({"name", "index"});
    row("plain", "user_log_file_12.txt", "12");
    row("before the first dot", "user_log_file_12.old.txt", "12");
    row("leading zeros", "user_log_file_007.txt", "7");
    row("no underscore, not a number", "readme.txt", "0");
    row("no underscore, a number", "42.txt", "42");
    row("not a number", "bcc_log_file_x.txt", "0");
    row("dated print file", "user_print_file_off_2_2025-05-26.txt", "0");
    row("pattern not checked", "notes_900.txt", "900");
    row("no extension", "user_print_file_off", "0");
}

void TestLogFiles::indexOfLogFile()
{
    QFETCH(QString, name);
    QFETCH(QString, index);
    QCOMPARE(QString::number(logfiles::indexOfLogFile(name)), index);
}

void TestLogFiles::datedNames_data()
{
    columns({"name", "read"}); // read: "no match", "no index" or the index
    row("plain", "print_12_2025-05-26.txt", "12");
    row("leading zeros", "print_007_2025-05-26.txt", "7");
    row("case-insensitive", "PRINT_3_2025-05-26.TXT", "3");
    row("negative reads", "print_-3_2025-05-26.txt", "-3");
    row("offline file", "print_off_0_2025-05-26.txt", "no index");
    row("empty index", "print__2025-05-26.txt", "no index");
    row("up to the last underscore", "print_3_4_2025.txt", "no index");
    row("one underscore short", "print_3.txt", "no match");
    row("prefix underscore not shared", "print_.txt", "no match");
    row("other extension", "print_3_2025-05-26.log", "no match");
    row("other prefix", "xprint_3_2025-05-26.txt", "no match");
}

void TestLogFiles::datedNames()
{
    QFETCH(QString, name);
    QFETCH(QString, read);
    int index = 0;
    const QString actual = !logfiles::matchesDatedPattern(name, "print"_s) ? "no match"_s
                           : logfiles::datedFileIndex(name, "print"_s, &index)
                               ? QString::number(index)
                               : "no index"_s;
    QCOMPARE(actual, read);
}

void TestLogFiles::newDirectory_data()
{
    columns({"resolver", "dirPath", "blocker", "message"}); // blocker: a file below the root
    row("indexed: missing, created", "indexed", "../../log/dir", "", "make log dir succeded!");
    row("indexed: missing parents, created", "indexed", "../../log/a/b/dir", "",
        "make log dir succeded!");
    row("indexed: a regular file where a parent must go", "indexed", "../../log/dir", "log",
        "make log dir failed!");
    row("indexed: a regular file at the directory's path", "indexed", "../../log/dir", "log/dir",
        "");
    row("dated: missing, created silently", "dated", "../../log/a/b/dir", "", "");
    row("dated: a regular file where a parent must go", "dated", "../../log/dir", "log",
        "make log dir failed!");
}

void TestLogFiles::newDirectory()
{
    QFETCH(QString, resolver);
    QFETCH(QString, dirPath);
    QFETCH(QString, blocker);
    QFETCH(QString, message);
    const QFileInfo blockerInfo(_tree->root() + QLatin1Char('/') + blocker);
    if (!blocker.isEmpty())
        QVERIFY(makeFile(blockerInfo.path(), blockerInfo.fileName()));
    MessageCapture capture;
    QString filePath = "unchanged"_s;
    const bool indexed = resolver == "indexed"_s;
    const bool result =
        indexed ? logfiles::resolveIndexedLogPath("user_log_file_%1.txt"_s, dirPath, filePath, 100)
                : logfiles::resolveDatedLogPath("p"_s, dirPath, filePath, 500);
    QCOMPARE(capture.messages().join(QLatin1Char('\n')), message);
    QCOMPARE(result, message != "make log dir failed!"_s);
    if (!result)
        QCOMPARE(filePath, "unchanged"_s);
    else if (indexed)
        QCOMPARE(filePath, absoluteDir(dirPath) + QDir::separator() + "user_log_file_0.txt"_s);
    else
        QCOMPARE(filePath, dirPath + "/p_0_"_s + today() + ".txt"_s);
    if (blocker.isEmpty())
        QCOMPARE(QDir(absoluteDir(dirPath)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList());
    else
        QVERIFY(blockerInfo.isFile());
}

void TestLogFiles::indexedResolution_data()
{
    columns({"pattern", "entries", "current", "deleted"});
    row("empty directory", "u_%1.txt", "", "u_0.txt", "");
    row("current file has room", "u_%1.txt", "u_[0-3].txt u_4.txt=300000", "u_4.txt", "");
    row("exactly 1 MiB stays", "u_%1.txt", "u_[0-3].txt u_4.txt=1048576", "u_4.txt", "");
    row("1 MiB and 1 byte rolls over", "u_%1.txt", "u_[0-3].txt u_4.txt=full", "u_5.txt", "");
    row("several full files in a row", // every name reads as index 0
        "u_%1_a.txt", "u_0_a.txt=full u_1_a.txt=full", "u_2_a.txt", "");
    row("numeric, not name order", "u_%1.txt", "u_3.txt u_10.txt", "u_10.txt", "");
    row("leading zeros: name from the pattern", "u_%1.txt", "u_0.txt u_007.txt", "u_7.txt", "");
    row("stray file with a high index", "u_%1.txt", "u_[0-4].txt n_900.txt", "u_900.txt", "");
    row("99 files: none deleted", "u_%1.txt", "u_[0-98].txt", "u_98.txt", "");
    row("100 files: lowest deleted", "u_%1.txt", "u_[0-99].txt", "u_99.txt", "u_0.txt");
    row("100 files, highest full", "u_%1.txt", "u_[0-98].txt u_99.txt=full", "u_100.txt",
        "u_0.txt");
    row("stray counts, reads as 0", "u_%1.txt", "u_[1-99].txt readme.txt", "u_99.txt",
        "readme.txt");
    row("130 files lose their 31 lowest", "u_%1.txt", "u_[0-129].txt", "u_129.txt", "u_[0-30].txt");
    row("hidden files not counted", "u_%1.txt", "u_[1-99].txt .u_0", "u_99.txt", "");
    row("directories not counted", "u_%1.txt", "u_[1-99].txt u_0/", "u_99.txt", "");
    row("no %1: the one name", "off", "off off_0_2025-05-26.txt", "off", "");
    row("no %1, over 1 MiB: same name, no endless loop", "off", "off=full", "off", "");
}

void TestLogFiles::indexedResolution()
{
    QFETCH(QString, pattern);
    QFETCH(QString, entries);
    QFETCH(QString, current);
    QFETCH(QString, deleted);
    QStringList kept = makeEntries(dir(), entries);
    MessageCapture capture;
    QString filePath;
    QVERIFY(logfiles::resolveIndexedLogPath(pattern, logDir, filePath, 100));
    QCOMPARE(filePath, absoluteDir(logDir) + QDir::separator() + current);
    for (const QString& name : expand(deleted))
        kept.removeOne(name);
    QCOMPARE(allFiles(dir()), kept);
    QCOMPARE(capture.messages(), QStringList());
}

void TestLogFiles::indexedRetentionTiesOldestModifiedFirst()
{
    makeEntries(dir(), "u_[1-98].txt a.txt m.txt z.txt"_s); // the strays read as index 0
    const QDateTime now = QDateTime::currentDateTime();
    QVERIFY(setFileTimes(dir() + "/a.txt"_s, now, now.addDays(-1)));
    QVERIFY(setFileTimes(dir() + "/m.txt"_s, now, now.addDays(-3)));
    QVERIFY(setFileTimes(dir() + "/z.txt"_s, now, now.addDays(-2)));
    QString filePath;
    QVERIFY(logfiles::resolveIndexedLogPath("u_%1.txt"_s, logDir, filePath, 100));
    QCOMPARE(allFiles(dir()), fileNamesOf("u_[1-98].txt a.txt"_s));
}

void TestLogFiles::indexedRetentionStopsWhenDeleteFails()
{
    makeEntries(dir(), "u_[0-99].txt"_s);
    if (!bindMount("u_0.txt"_s))
        QSKIP(qPrintable(_mountError));
    QString filePath;
    QVERIFY(logfiles::resolveIndexedLogPath("u_%1.txt"_s, logDir, filePath, 100));
    QCOMPARE(filePath, absoluteDir(logDir) + QDir::separator() + "u_99.txt"_s);
    QCOMPARE(allFiles(dir()).size(), 100);
}

void TestLogFiles::datedResolution_data()
{
    columns({"prefix", "entries", "current"}); // "<today>" stands for today's date
    row("empty directory", "p", "", "p_0_<today>.txt");
    row("latest kept across dates", "p", "p_2_2025-05-10.txt p_3_2025-05-20.txt=500000",
        "p_3_2025-05-20.txt");
    row("full: next index, today's date", "p", "p_3_2025-05-26.txt=full", "p_4_<today>.txt");
    row("exactly 1 MiB stays", "p", "p_3_2025-05-26.txt=1048576", "p_3_2025-05-26.txt");
    row("numeric, not name order", "p", "p_9_2025-05-01.txt p_10_2025-05-02.txt",
        "p_10_2025-05-02.txt");
    row("equal index: first in name order", "p", "p_3_2025-05-27.txt p_3_2025-05-26.txt",
        "p_3_2025-05-26.txt");
    row("equal index: name order ignores case", "p", "P_3_b.txt p_3_a.txt", "p_3_a.txt");
    row("leading zeros: the listed name", "p", "p_007_2025-05-26.txt", "p_007_2025-05-26.txt");
    row("leading zeros, full", "p", "p_007_2025-05-26.txt=full", "p_8_<today>.txt");
    row("offline files ignored by the online prefix", "p", "p_off_5_2025-05-26.txt",
        "p_0_<today>.txt");
    row("online files ignored by the offline prefix", "p_off",
        "p_7_2025-05-26.txt p_off_2_2025-05-26.txt", "p_off_2_2025-05-26.txt");
    row("only invalid indexes", "p", "p__2025-05-26.txt p_x_2025-05-26.txt p_-3_2025-05-26.txt",
        "p_0_<today>.txt");
    row("directories are no candidates", "p", "p_9_2025-05-26.txt/ p_2_2025-05-26.txt",
        "p_2_2025-05-26.txt");
}

void TestLogFiles::datedResolution()
{
    QFETCH(QString, prefix);
    QFETCH(QString, entries);
    QFETCH(QString, current);
    makeEntries(dir(), entries);
    QVERIFY(QFile::link(_tree->root() + "/source"_s, dir() + "/p_8_2025-05-26.txt"_s) &&
            makeFile(_tree->root(), "source"_s)); // a link is never a candidate
    MessageCapture capture;
    QString filePath;
    QVERIFY(logfiles::resolveDatedLogPath(prefix, logDir, filePath, 500));
    QCOMPARE(filePath, logDir + QLatin1Char('/') + current.replace("<today>"_s, today()));
    QCOMPARE(allFiles(dir()), fileNamesOf(entries + " p_8_2025-05-26.txt"_s));
    QCOMPARE(capture.messages(), QStringList());
}

void TestLogFiles::datedResolutionTrimsBeforeListing()
{
    const QStringList names = makeEntries(dir(), "f[0-498].txt p_1_2025-01-01.txt p_2_x.txt"_s);
    setReadTimes(names, {"p_2_x.txt"_s});
    QString filePath;
    QVERIFY(logfiles::resolveDatedLogPath("p"_s, logDir, filePath, 500));
    QCOMPARE(filePath, logDir + "/p_1_2025-01-01.txt"_s);
    QCOMPARE(allFiles(dir()).size(), 500);
    QVERIFY(!QFile::exists(dir() + "/p_2_x.txt"_s));
}

void TestLogFiles::deleteOldestFiles_data()
{
    columns({"entries", "older", "deleted"}); // older: read a day before all other files
    row("500 files, limit 500", "f[1-500].txt", "f100.txt", "");
    row("501 files: least recently read goes", "f[0-500].txt", "f250.txt", "f250.txt");
    row("520 files: one per call", "f[0-519].txt", "f10.txt f300.txt", "f10.txt");
    row("equal times: first in code-value order", "f[1-499].txt a.txt B.txt", "a.txt B.txt",
        "B.txt");
    row(".log files never counted", "f[1-200].txt g[1-400].log", "", "");
    row(".log files never deleted", "f[0-500].txt a.log", "a.log", "f0.txt");
    row("REPORT.TXT counts", "f[1-500].txt REPORT.TXT", "REPORT.TXT", "REPORT.TXT");
    row("hidden files not counted", "f[1-500].txt .h.txt", ".h.txt", "");
    row("directories not counted", "f[1-500].txt d.txt/", "", "");
}

void TestLogFiles::deleteOldestFiles()
{
    QFETCH(QString, entries);
    QFETCH(QString, older);
    QFETCH(QString, deleted);
    QStringList kept = makeEntries(dir(), entries);
    setReadTimes(kept, expand(older));
    UserLogWriter writer; // writes its start-up banner elsewhere
    MessageCapture capture;
    QVERIFY(QMetaObject::invokeMethod(&writer, "deleteOldestFiles", Q_ARG(QString, logDir),
                                      Q_ARG(int, 500)));
    kept.removeAll(deleted);
    QCOMPARE(allFiles(dir()), kept);
    QCOMPARE(capture.messages(), QStringList());
}

void TestLogFiles::deleteOldestFilesMissingFolder()
{
    MessageCapture capture;
    logfiles::deleteOldestFiles(logDir, 0);
    QVERIFY(!QFileInfo::exists(dir()));
    QCOMPARE(capture.messages(), QStringList());
}

void TestLogFiles::deleteOldestFilesDeleteFails()
{
    const QStringList names = makeEntries(dir(), "f[0-500].txt"_s);
    if (!bindMount("f0.txt"_s))
        QSKIP(qPrintable(_mountError));
    setReadTimes(names, {"f0.txt"_s});
    logfiles::deleteOldestFiles(logDir, 500);
    QCOMPARE(allFiles(dir()), names);
}

QTEST_GUILESS_MAIN(TestLogFiles)
#include "tst_logfiles.moc"
