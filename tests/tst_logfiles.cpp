// File resolution and retention of the log directories: randomised directories
// checked against a model of the rules and against QDir's listing, and as named
// rows what they cannot reach: ties that the listing order must not decide, files
// that cannot be deleted, a missing directory, a link among the print files.
//
// The randomised directories start from a fixed seed; USERLOG_PROPERTY_SEED=<seed>
// replays a failing case or explores from another seed.
#include "testtree.h"
#include "userlog/writer/datedlog.h"
#include "userlog/writer/dirlisting.h"
#include "userlog/writer/filenames.h"
#include "userlog/writer/indexedlog.h"
#include "userlog/writer/userlogwriter.h"

#include <QtTest/QtTest>

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

#ifndef Q_OS_WIN
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

using namespace logfiles;

namespace {

constexpr qint64 oneMiB = 1048576;

// A file a row puts into log/dir: how many days ago it was last read and
// modified, and what it is.
struct TestFile
{
    enum Kind
    {
        File,
        LinkToFile,
        Held, // cannot be deleted while the row runs
    };
    QString name;
    int daysOld = 0;
    Kind kind = File;
};
using TestFiles = QVector<TestFile>;

// The indexed resolver's path: absolute, the native separator before the name.
QString absoluteLogFile(const QString& dirPath, const QString& name)
{
    return QDir::cleanPath(QDir::currentPath() + '/' + dirPath) + QDir::separator() + name;
}

QStringList listedNames(const QVector<ListedFile>& listed)
{
    QStringList names;
    for (const ListedFile& file : listed)
        names << file.name + (file.isSymLink ? " (link)"_s : QString());
    names.sort();
    return names;
}

// What QDir::Files lists, in the same form.
QStringList qdirNames(const QString& dir)
{
    QVector<ListedFile> listed;
    for (const QFileInfo& info : QDir(dir).entryInfoList(QDir::Files))
        listed.append({info.fileName(), info.isSymLink()});
    return listedNames(listed);
}

#ifndef Q_OS_WIN
// Unix entries QFile cannot make: a name of raw bytes (each character of name one
// byte, "\xff" one that UTF-8 cannot read), a FIFO, links to /dev/null and to a FIFO.
enum class UnixEntry
{
    Undecodable,
    LinkToDevNull,
    Fifo,
    LinkToFifo,
};

bool makeUnixEntry(const QString& dir, const QString& name, UnixEntry kind)
{
    const QByteArray path = QFile::encodeName(dir) + '/' + name.toLatin1();
    const QByteArray fifo = QFile::encodeName(dir) + "/../fifo";
    switch (kind) {
    case UnixEntry::Undecodable:
        return QDir().mkpath(dir) &&
               ::close(::open(path.constData(), O_CREAT | O_WRONLY, 0644)) == 0;
    case UnixEntry::LinkToDevNull:
        return ::symlink("/dev/null", path.constData()) == 0;
    case UnixEntry::Fifo:
        return ::mkfifo(path.constData(), 0644) == 0;
    case UnixEntry::LinkToFifo:
        return (::mkfifo(fifo.constData(), 0644) == 0 || errno == EEXIST) &&
               ::symlink(fifo.constData(), path.constData()) == 0;
    default:
        return false;
    }
}
#endif

// Names that follow the pattern or the prefix, and strays of every kind: leading zeros, other
// extensions and cases, negative, huge or missing indexes, hidden files, links to a file, to
// nothing and to a directory, subdirectories; on Unix also names that do not decode (the first
// byte among them), FIFOs and links to special files. Sizes mostly right at the full-file
// threshold; times in whole hours, so that some are equal.
void makeRandomFiles(QRandomGenerator& rng, const QString& dir, const QString& base, bool dated,
                     int count)
{
    const QDateTime now = QDateTime::currentDateTime();
#ifdef Q_OS_WIN
    const QString linkSuffix = ".lnk"_s; // QFile::link makes shell shortcuts there
    const int formCount = 13;
#else
    const QString linkSuffix;
    const int formCount = 19;
#endif
    QDir().mkpath(dir);
    for (; count > 0; --count) {
        const QString i = QString::number(rng.bounded(count + 3));
        const QString tail = "_2025-05-"_s + QString::number(10 + rng.bounded(20)) + ".txt"_s;
        const QString named = dated ? base + '_' + i + tail : QString(base).replace("%1"_s, i);
        const QString forms[] = {named,
                                 dated ? base.toUpper() + '_' + i + tail.toUpper()
                                       : QString(base).replace("%1"_s, "00"_s + i),
                                 base + "_00"_s + i + tail, base + "_off_"_s + i + tail,
                                 base + "_-"_s + i + tail, base + "_99999999999"_s + tail,
                                 base + '_' + i + ".txt"_s, "n\u00f6tes_"_s + i + ".log"_s,
                                 "\u00e9t\u00e9_"_s + i + ".txt"_s, "readme.txt"_s,
                                 ".hidden_"_s + i + ".txt"_s, "n\u00e4me_"_s + i + '/',
                                 "link_"_s + i + ".txt"_s + linkSuffix,
                                 // Unix only, made by makeUnixEntry:
                                 "\u00ff"_s + named, "x\u00ff_"_s + i + tail,
                                 "\u00ef\u00bb\u00bf"_s + named, // a byte order mark: decodes
                                 named, named, named};
        const int form = rng.bounded(2) == 0 ? 0 : rng.bounded(formCount);
        const QString path = dir + '/' + forms[form];
        const qint64 sizes[] = {oneMiB - 1, oneMiB, oneMiB + 1, 4096};
#ifndef Q_OS_WIN
        if (form >= 13) {
            const UnixEntry kinds[] = {UnixEntry::Undecodable, UnixEntry::Undecodable,
                                       UnixEntry::Undecodable, UnixEntry::LinkToDevNull,
                                       UnixEntry::Fifo,        UnixEntry::LinkToFifo};
            if (!QFileInfo(path).isSymLink() && !QFileInfo::exists(path))
                makeUnixEntry(dir, forms[form], kinds[form - 13]);
            continue;
        }
#endif
        if (path.endsWith('/')) {
            QDir().mkpath(path);
        } else if (path.contains("/link_"_s) && !QFileInfo(path).isSymLink()) {
            // Targets outside the directory, so that the retention cannot break a link.
            const QString targets[] = {"/../target.txt"_s, "/../gone.txt"_s, "/.."_s};
            makeFile(dir + targets[0]);
            QFile::link(QFileInfo(dir + targets[rng.bounded(3)]).absoluteFilePath(), path);
        } else if (!QFileInfo::exists(path) && makeFile(path, sizes[rng.bounded(4)])) {
            const QDateTime time = now.addSecs(-rng.bounded(4) * 3600);
            setFileTimes(path, time, time);
        }
    }
}

// The index of any file in an indexed log directory, by the rule's own words.
int ruleIndex(const QString& name)
{
    return QFileInfo(name).baseName().section('_', -1).toInt();
}

// The indexed logs, read off the directory before the call: the lowest indexes go while
// limit files or more are there (files of equal index in any order). Returns the highest
// index; adds the deleted indexes to gone.
int indexedModel(const QString& dir, int limit, QStringList* gone)
{
    QVector<int> indexes;
    for (const QString& name : QDir(dir).entryList(QDir::Files))
        indexes << ruleIndex(name);
    std::sort(indexes.begin(), indexes.end());
    for (int i = 0; indexes.size() >= limit && i <= indexes.size() - limit; ++i)
        *gone << QString::number(indexes.at(i));
    return indexes.isEmpty() ? 0 : indexes.last();
}

// From the highest index on, past the full files that the retention left.
QString indexedRollover(const QString& dir, const QString& pattern, qint64 index)
{
    const auto nameOf = [&pattern](qint64 i) {
        return QString(pattern).replace("%1"_s, QString::number(i));
    };
    while (pattern.contains("%1"_s) && QFileInfo(dir + '/' + nameOf(index)).size() > oneMiB)
        ++index;
    return nameOf(index);
}

// The print files: past the limit the least recently read ".txt" file goes (the first in
// name order among equal times); then the candidate with the highest valid index is
// current (the first in case-insensitive name order among equal ones), or the next index
// starts when it is full, or index 0 when none counts; "DATE" stands for the day.
QString datedModel(const QString& dir, const QString& prefix, int limit, QStringList* gone)
{
    const QFileInfoList txt = QDir(dir).entryInfoList({"*.txt"_s}, QDir::Files, QDir::Name);
    if (txt.size() > limit)
        *gone << std::min_element(txt.begin(), txt.end(), [](auto& a, auto& b) {
                     return a.lastRead() < b.lastRead();
                 })->fileName();
    QStringList candidates = QDir(dir).entryList({prefix + "_*_*.txt"_s},
                                                 QDir::Files | QDir::NoSymLinks, QDir::IgnoreCase);
    candidates.removeOne(gone->value(0));
    // Names equal but for case: QDir leaves them in listing order; the exact order decides.
    std::stable_sort(candidates.begin(), candidates.end(), [](const QString& a, const QString& b) {
        const int folded = a.compare(b, Qt::CaseInsensitive);
        return folded < 0 || (folded == 0 && a < b);
    });
    int highest = -1;
    QString latest;
    for (const QString& name : candidates) {
        bool ok = false;
        const int index =
            name.mid(prefix.size() + 1, name.lastIndexOf('_') - prefix.size() - 1).toInt(&ok);
        if (ok && index > highest) {
            highest = index;
            latest = name;
        }
    }
    if (highest >= 0 && QFileInfo(dir + '/' + latest).size() <= oneMiB)
        return latest;
    return prefix + '_' + QString::number(highest + 1) + "_DATE.txt"_s;
}

// One random directory, resolved; what went wrong, or an empty text.
QString checkRandomDirectory(quint32 seed, bool dated)
{
    QRandomGenerator rng(seed);
    const QString bases[] = {dated ? "user_print_file"_s : "user_log_file_%1.txt"_s,
                             dated ? "user_print_file_off"_s : "bcc_log_file_%1.txt"_s,
                             dated ? "Cell"_s : "off"_s};
    const QString base = bases[rng.bounded(3)];
    const int limit = std::vector<int>{2, 3, 5, 12}[rng.bounded(4)];
    const QString dir = "../../log/case"_s + QString::number(seed);
    makeRandomFiles(rng, dir, base, dated, rng.bounded(limit + 4));
    // The native listing and its portable fallback list what QDir::Files lists.
    if (listedNames(listFiles(dir)) != qdirNames(dir) ||
        listedNames(listFilesPortable(dir)) != qdirNames(dir))
        return "listings differ: "_s + listedNames(listFiles(dir)).join(' ') + " / QDir: "_s +
               qdirNames(dir).join(' ') + " / portable: "_s +
               listedNames(listFilesPortable(dir)).join(' ');
    const QStringList before = fileNames(dir);
    const QDate day = QDate::currentDate();
    QStringList expectedGone, gone;
    QString path, expected;
    if (dated) {
        expected = dir + '/' + datedModel(dir, base, limit, &expectedGone);
        resolveDatedLogPath(base, dir, path, limit);
    } else {
        const int highest = indexedModel(dir, limit, &expectedGone);
        resolveIndexedLogPath(base, dir, path, limit);
        expected = absoluteLogFile(dir, indexedRollover(dir, base, highest));
    }
    for (const QString& name : before)
        if (!fileNames(dir).contains(name))
            gone << (dated ? name : QString::number(ruleIndex(name)));
    gone.sort();
    expectedGone.sort();
    removeTree(dir);
    for (const QDate& d : {day, QDate::currentDate()}) // a run across midnight may use either
        if (path == QString(expected).replace("DATE"_s, d.toString("yyyy-MM-dd"_s)))
            return gone == expectedGone ? QString() : "deleted "_s + gone.join(' ');
    return "chose "_s + path + ", expected "_s + expected;
}

// Rows of the resolution table: files in log/dir; for the indexed logs the current file and
// those deleted, for the print files the current one or the index a new file starts today.
void indexedRow(const char* name, const TestFiles& files, const char* current,
                const QStringList& deleted = {}, int limit = 100, const char* pattern = "u_%1.txt")
{
    QTest::newRow(name) << false << files << QString(current) << -1 << deleted << limit
                        << QString(pattern);
}

void datedRow(const char* name, const TestFiles& files, const char* current, int started = -1,
              const char* prefix = "p")
{
    QTest::newRow(name) << true << files << QString(current) << started << QStringList() << 500
                        << QString(prefix);
}

// Holding a file against deletion: on Windows a handle without sharing, elsewhere a bind
// mount, which needs root.
bool canHoldFiles()
{
#ifdef Q_OS_WIN
    return true;
#else
    return geteuid() == 0;
#endif
}

} // namespace

Q_DECLARE_METATYPE(TestFiles)

class TestLogFiles : public QObject
{
    Q_OBJECT

private slots:
    void init() { QVERIFY(_tree.emplace().isValid()); }

    void cleanup() { _held.clear(); } // the tree goes at the next init, or with the test

    void resolution_data()
    {
        QTest::addColumn<bool>("dated");
        QTest::addColumn<TestFiles>("files");
        QTest::addColumn<QString>("current");
        QTest::addColumn<int>("started");
        QTest::addColumn<QStringList>("deleted");
        QTest::addColumn<int>("limit");
        QTest::addColumn<QString>("pattern"); // or the print files' prefix
        const TestFiles u1to3{{"u_1.txt"_s}, {"u_2.txt"_s}, {"u_3.txt"_s}};
        // Ties are ours to order: oldest-modified first, never the listing's order. The
        // two rows swap the ages, so that no one listing order passes both.
        indexedRow("equal indexes: the oldest-modified goes first",
                   u1to3 + TestFiles{{"a.txt"_s, 1}, {"z.txt"_s, 2}}, "u_3.txt", {"z.txt"_s}, 5);
        indexedRow("equal indexes, ages swapped", u1to3 + TestFiles{{"a.txt"_s, 2}, {"z.txt"_s, 1}},
                   "u_3.txt", {"a.txt"_s}, 5);
        if (canHoldFiles())
            indexedRow("the lowest cannot be deleted: none is, the highest still current",
                       TestFiles{{"u_0.txt"_s, 0, TestFile::Held}} + u1to3, "u_3.txt", {}, 3);
        datedRow("a missing directory is made, index 0 started today", {}, "", 0);
        datedRow("an empty last part still matches", {{"p_2_x.txt"_s}, {"p_3_.txt"_s}}, "p_3_.txt");
#ifndef Q_OS_WIN // QFile::link makes a shortcut there, a regular file
        const TestFile link{"p_8_x.txt"_s, 0, TestFile::LinkToFile};
        datedRow("a link to a file is no candidate", {link}, "", 0);
#endif
    }

    void resolution()
    {
        QFETCH(bool, dated);
        QFETCH(TestFiles, files);
        QFETCH(QString, current);
        QFETCH(int, started);
        QFETCH(QStringList, deleted);
        QFETCH(int, limit);
        QFETCH(QString, pattern);
        QVERIFY(makeFiles(files));
        const QString dir = "../../log/dir"_s;
        QString path;
        takeMessages();
        const QDate day = QDate::currentDate();
        QVERIFY(dated ? resolveDatedLogPath(pattern, dir, path, limit)
                      : resolveIndexedLogPath(pattern, dir, path, limit));
        QStringList expected{dated ? dir + '/' + current : absoluteLogFile(dir, current)};
        for (const QDate& d : {day, QDate::currentDate()}) // a new print file: either day
            expected << "%1/%2_%3_%4.txt"_s.arg(dir, pattern)
                            .arg(started)
                            .arg(d.toString("yyyy-MM-dd"_s));
        QVERIFY2(expected.contains(path) && (started < 0) == !current.isEmpty(), qPrintable(path));
        QCOMPARE(fileNames(_tree->path("log/dir"_s)), kept(files, deleted));
        QCOMPARE(takeMessages(), QStringList()); // a new print directory is made silently
    }

    // The writer's slot, with a limit of 3: what it deletes in one call.
    void retention_data()
    {
        QTest::addColumn<TestFiles>("files");
        QTest::addColumn<QString>("deleted");
        const TestFiles recent{{"c.txt"_s}, {"d.txt"_s}};
        QTest::newRow("equal times: the first in name order")
            << TestFiles{{"b.txt"_s, 1}, {"a.txt"_s, 1}} + recent << "a.txt"_s;
        if (canHoldFiles())
            QTest::newRow("the candidate cannot be deleted: nothing else goes")
                << TestFiles{{"a.txt"_s, 2, TestFile::Held}, {"b.txt"_s, 1}} + recent << QString();
    }

    void retention()
    {
        QFETCH(TestFiles, files);
        QFETCH(QString, deleted);
        QVERIFY(makeFiles(files));
        UserLogWriter writer; // its banner's messages before the capture
        takeMessages();
        writer.deleteOldestFiles("../../log/dir"_s, 3);
        QCOMPARE(fileNames(_tree->path("log/dir"_s)), kept(files, {deleted}));
        writer.deleteOldestFiles("../../log/none"_s, 0); // a missing folder is not made
        QVERIFY(!QFileInfo::exists("../../log/none"_s));
        QCOMPARE(takeMessages(), QStringList());
    }

    void randomDirectories_data()
    {
        QTest::addColumn<bool>("dated");
        QTest::newRow("indexed files") << false;
        QTest::newRow("dated files") << true;
    }

    void randomDirectories()
    {
        QFETCH(bool, dated);
        const QString replay = qEnvironmentVariable("USERLOG_PROPERTY_SEED");
        const quint32 first = replay.isEmpty() ? 20261124 : replay.toUInt();
        qInfo("seeds %u to %u; replay one with USERLOG_PROPERTY_SEED=<seed>", first, first + 299);
        QLoggingCategory::setFilterRules("default.debug=false"_s); // the directory messages
        for (quint32 seed = first; seed != first + 300; ++seed) {
            const QString failure = checkRandomDirectory(seed, dated);
            QVERIFY2(failure.isEmpty(),
                     qPrintable("seed %1: %2 (replay: USERLOG_PROPERTY_SEED=%1)"_s.arg(seed).arg(
                         failure)));
        }
    }

private:
    bool makeFiles(const TestFiles& files)
    {
        const QString dir = _tree->path("log/dir/"_s), target = _tree->path("target"_s);
        const QDateTime now = QDateTime::currentDateTime(); // equal ages stay equal
        for (const TestFile& file : files) {
            const QString path = dir + file.name;
            const QDateTime time = now.addDays(-file.daysOld);
            if (file.kind == TestFile::LinkToFile
                    ? !makeFile(target) || !QDir().mkpath(dir) || !QFile::link(target, path)
                    : !makeFile(path) || !setFileTimes(path, time, time) ||
                          (file.kind == TestFile::Held && !_held.emplace_back(holdFile(path))))
                return false;
        }
        return true;
    }

    // The names that a call deleting those in deleted must leave, sorted.
    static QStringList kept(const TestFiles& files, const QStringList& deleted)
    {
        QStringList names;
        for (const TestFile& file : files)
            if (!deleted.contains(file.name))
                names << file.name;
        names.sort();
        return names;
    }

    std::optional<TestTree> _tree;
    std::vector<std::shared_ptr<void>> _held;
};

QTEST_GUILESS_MAIN(TestLogFiles)
#include "tst_logfiles.moc"
