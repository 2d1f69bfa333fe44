// File resolution and retention of the log directories: the stated cases as named
// rows, ties that the listing order must not decide, the native listing against
// QDir's, and randomised directories checked against a model of the rules.
//
// The randomised directories start from a fixed seed; USERLOG_PROPERTY_SEED=<seed>
// replays a failing case or explores from another seed.
#include "testtree.h"
#include "userlog/writer/logfiles.h"
#include "userlog/writer/userlogwriter.h"

#include <QtTest/QtTest>

#include <algorithm>
#include <climits>
#include <memory>
#include <optional>
#include <vector>

using namespace logfiles;

namespace {

constexpr qint64 oneMiB = 1048576;

// A file a row puts into log/dir: its size, how many days ago it was last read
// and modified, and what it is.
struct TestFile
{
    enum Kind
    {
        File,
        LinkToFile,
        Held, // cannot be deleted while the row runs
    };
    QString name;
    qint64 size = 0;
    int daysOld = 0;
    Kind kind = File;
};
using TestFiles = QVector<TestFile>;

// pattern with "%1" replaced by first to last: numbered("u_%1.txt", 0, 2) is u_0 to u_2.
TestFiles numbered(const QString& pattern, int first, int last)
{
    TestFiles files;
    for (int i = first; i <= last; ++i)
        files.append({QString(pattern).replace("%1"_s, QString::number(i))});
    return files;
}

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

// Names that follow the pattern or the prefix, and strays of every kind: leading zeros, other
// extensions and cases, negative, huge or missing indexes, hidden files, links to a file, to
// nothing and to a directory, subdirectories. Sizes mostly right at the full-file threshold;
// times in whole hours, so that some are equal.
void makeRandomFiles(QRandomGenerator& rng, const QString& dir, const QString& base, bool dated,
                     int count)
{
    const QDateTime now = QDateTime::currentDateTime();
#ifdef Q_OS_WIN
    const QString linkSuffix = ".lnk"_s; // QFile::link makes shell shortcuts there
#else
    const QString linkSuffix;
#endif
    QDir().mkpath(dir);
    for (; count > 0; --count) {
        const QString i = QString::number(rng.bounded(count + 3));
        const QString tail = "_2025-05-"_s + QString::number(10 + rng.bounded(20)) + ".txt"_s;
        const QString forms[] = {dated ? base + '_' + i + tail : QString(base).replace("%1"_s, i),
                                 dated ? base.toUpper() + '_' + i + tail.toUpper()
                                       : QString(base).replace("%1"_s, "00"_s + i),
                                 base + "_00"_s + i + tail,
                                 base + "_off_"_s + i + tail,
                                 base + "_-"_s + i + tail,
                                 base + "_99999999999"_s + tail,
                                 base + '_' + i + ".txt"_s,
                                 "n\u00f6tes_"_s + i + ".log"_s,
                                 "readme.txt"_s,
                                 ".hidden_"_s + i + ".txt"_s,
                                 "n\u00e4me_"_s + i + '/',
                                 "link_"_s + i + ".txt"_s + linkSuffix};
        const QString path = dir + '/' + forms[rng.bounded(2) == 0 ? 0 : rng.bounded(12)];
        const qint64 sizes[] = {oneMiB - 1, oneMiB, oneMiB + 1, 4096};
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

// The rules for the indexed logs, read off the directory before the call. Returns the
// highest index; sets mustGo to the files that lose every tie, mayGo to those of which
// tieDeletes go: files of equal index may go in any order.
int indexedModel(const QString& dir, int limit, QStringList* mustGo, QStringList* mayGo,
                 int* tieDeletes)
{
    const QFileInfoList listed = QDir(dir).entryInfoList(QDir::Files);
    const auto indexOf = [](const QFileInfo& f) { return f.baseName().section('_', -1).toInt(); };
    QVector<int> indexes;
    for (const QFileInfo& file : listed)
        indexes << indexOf(file);
    std::sort(indexes.begin(), indexes.end());
    const int deleteCount = indexes.size() >= limit ? indexes.size() - limit + 1 : 0;
    const int boundary = deleteCount > 0 ? indexes.at(deleteCount - 1) : INT_MIN;
    *tieDeletes = int(deleteCount - std::count_if(indexes.begin(), indexes.end(),
                                                  [&](int i) { return i < boundary; }));
    for (const QFileInfo& file : listed) {
        if (indexOf(file) < boundary)
            *mustGo << file.fileName();
        else if (indexOf(file) == boundary)
            *mayGo << file.fileName();
    }
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

// The rules for the print files: past the limit the least recently read ".txt" file goes
// (the first in name order among equal times); then the candidate with the highest valid
// index is current (the first in case-insensitive name order among equal ones), or the next
// index is started when it is full, or index 0 when none counts. Expected names that start
// a file are given with "DATE" for the day.
QString datedModel(const QString& dir, const QString& prefix, int limit, QString* deleted)
{
    const QFileInfoList txt = QDir(dir).entryInfoList({"*.txt"_s}, QDir::Files, QDir::Name);
    if (txt.size() > limit)
        *deleted = std::min_element(txt.begin(), txt.end(), [](auto& a, auto& b) {
                       return a.lastRead() < b.lastRead();
                   })->fileName();
    QStringList candidates = QDir(dir).entryList({prefix + "_*_*.txt"_s},
                                                 QDir::Files | QDir::NoSymLinks, QDir::IgnoreCase);
    candidates.removeOne(*deleted);
    // Names equal but for case: QDir leaves them in listing order; the exact order decides.
    std::stable_sort(candidates.begin(), candidates.end(), [](const QString& a, const QString& b) {
        return a.compare(b, Qt::CaseInsensitive) < 0 ||
               (a.compare(b, Qt::CaseInsensitive) == 0 && a < b);
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
    if (listedNames(listFiles(dir)) != qdirNames(dir))
        return "listings differ: "_s + listedNames(listFiles(dir)).join(' ');
    QStringList before = fileNames(dir), mustGo, mayGo;
    QString deleted, expected, path;
    int tieDeletes = 0;
    const QDate day = QDate::currentDate();
    if (dated) {
        expected = dir + '/' + datedModel(dir, base, limit, &deleted);
        if (!deleted.isEmpty())
            mustGo << deleted;
        resolveDatedLogPath(base, dir, path, limit);
    } else {
        const int highest = indexedModel(dir, limit, &mustGo, &mayGo, &tieDeletes);
        resolveIndexedLogPath(base, dir, path, limit);
        expected = absoluteLogFile(dir, indexedRollover(dir, base, highest));
    }
    QStringList gone;
    for (const QString& name : before)
        if (!fileNames(dir).contains(name))
            gone << name;
    const auto days = {day, QDate::currentDate()}; // a run across midnight may use either
    const bool pathOk = std::any_of(days.begin(), days.end(), [&](const QDate& d) {
        return path == QString(expected).replace("DATE"_s, d.toString("yyyy-MM-dd"_s));
    });
    const int goneFromTies = int(std::count_if(
        gone.begin(), gone.end(), [&](const QString& n) { return mayGo.contains(n); }));
    const bool goneOk = goneFromTies == tieDeletes && gone.size() == mustGo.size() + tieDeletes &&
                        std::all_of(mustGo.begin(), mustGo.end(),
                                    [&](const QString& n) { return gone.contains(n); });
    QDir(dir).removeRecursively();
    if (!pathOk)
        return "chose "_s + path + ", expected "_s + expected;
    return goneOk ? QString() : "deleted "_s + gone.join(' ') + " of "_s + before.join(' ');
}

} // namespace

Q_DECLARE_METATYPE(TestFiles)

#define MAKE_FILES(files)                                                                          \
    do {                                                                                           \
        const QString problem = makeFiles(files);                                                  \
        if (problem == cannotHold)                                                                 \
            QSKIP(qPrintable(problem));                                                            \
        QVERIFY2(problem.isEmpty(), qPrintable(problem));                                          \
    } while (false)

class TestLogFiles : public QObject
{
    Q_OBJECT

private slots:
    void init() { QVERIFY(_tree.emplace().isValid()); }

    void cleanup()
    {
        _held.clear();
        _tree.reset();
    }

    void indexed_data()
    {
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<int>("limit");
        QTest::addColumn<TestFiles>("files");
        QTest::addColumn<QString>("current");
        QTest::addColumn<QStringList>("deleted");
        const QString u = "u_%1.txt"_s;
        QTest::newRow("an empty directory starts at index 0")
            << u << 100 << TestFiles{} << "u_0.txt"_s << QStringList();
        QTest::newRow("the highest index has room: it stays current")
            << u << 100 << numbered(u, 0, 4) + TestFiles{{"u_5.txt"_s, 300000}} << "u_5.txt"_s
            << QStringList();
        QTest::newRow("exactly 1,048,576 bytes: stays current")
            << u << 100 << TestFiles{{"u_4.txt"_s, oneMiB}} << "u_4.txt"_s << QStringList();
        QTest::newRow("one byte more: the next index, not there yet")
            << u << 100 << TestFiles{{"u_4.txt"_s, oneMiB + 1}} << "u_5.txt"_s << QStringList();
        QTest::newRow("full files one after another are all passed")
            << u << 100 << TestFiles{{"u_4.txt"_s, oneMiB + 1}, {"u_5.txt"_s, oneMiB + 1}}
            << "u_6.txt"_s << QStringList();
        QTest::newRow("indexes compare as numbers: 3 before 10")
            << u << 100 << TestFiles{{"u_10.txt"_s}, {"u_3.txt"_s}} << "u_10.txt"_s
            << QStringList();
        QTest::newRow("u_007.txt gives the path of index 7")
            << u << 100 << TestFiles{{"u_007.txt"_s}, {"u_6.txt"_s}} << "u_7.txt"_s
            << QStringList();
        QTest::newRow("any name's number counts: notes_900.txt is the highest")
            << u << 100 << numbered(u, 0, 4) + TestFiles{{"notes_900.txt"_s}} << "u_900.txt"_s
            << QStringList();
        QTest::newRow("a pattern without %1 names one file, full or not")
            << "off"_s << 100 << TestFiles{{"off"_s, oneMiB + 1}, {"off_3.txt"_s}} << "off"_s
            << QStringList();
        QTest::newRow("at the limit the lowest index goes")
            << u << 5 << numbered(u, 0, 4) << "u_4.txt"_s << QStringList{"u_0.txt"_s};
        QTest::newRow("far past the limit: all the lowest in one call")
            << u << 3 << numbered(u, 0, 5) << "u_5.txt"_s
            << QStringList{"u_0.txt"_s, "u_1.txt"_s, "u_2.txt"_s, "u_3.txt"_s};
        QTest::newRow("a stray without a number reads 0 and goes first")
            << u << 5 << numbered(u, 1, 4) + TestFiles{{"readme.txt"_s}} << "u_4.txt"_s
            << QStringList{"readme.txt"_s};
        // Ties are ours to order: oldest-modified first, never the listing's order. The
        // two rows swap the ages, so that no one listing order passes both.
        QTest::newRow("equal indexes: the oldest-modified goes first")
            << u << 5 << numbered(u, 1, 3) + TestFiles{{"a.txt"_s, 0, 1}, {"z.txt"_s, 0, 2}}
            << "u_3.txt"_s << QStringList{"z.txt"_s};
        QTest::newRow("equal indexes, ages swapped")
            << u << 5 << numbered(u, 1, 3) + TestFiles{{"a.txt"_s, 0, 2}, {"z.txt"_s, 0, 1}}
            << "u_3.txt"_s << QStringList{"a.txt"_s};
        QTest::newRow("the lowest cannot be deleted: none is, the highest still current")
            << u << 3 << TestFiles{{"u_0.txt"_s, 0, 0, TestFile::Held}} + numbered(u, 1, 3)
            << "u_3.txt"_s << QStringList();
    }

    void indexed()
    {
        QFETCH(QString, pattern);
        QFETCH(int, limit);
        QFETCH(TestFiles, files);
        QFETCH(QString, current);
        QFETCH(QStringList, deleted);
        MAKE_FILES(files);
        QString path;
        takeMessages();
        QVERIFY(resolveIndexedLogPath(pattern, "../../log/dir"_s, path, limit));
        QCOMPARE(path, absoluteLogFile("../../log/dir"_s, current));
        QCOMPARE(fileNames(_tree->path("log/dir"_s)), kept(files, deleted));
        QCOMPARE(takeMessages(), QStringList());
    }

    void dated_data()
    {
        QTest::addColumn<QString>("prefix");
        QTest::addColumn<TestFiles>("files");
        QTest::addColumn<QString>("current"); // empty: one started today
        QTest::addColumn<int>("startedIndex");
        const QString p26 = "p_3_2025-05-26.txt"_s;
        QTest::newRow("an empty directory starts index 0 today")
            << "p"_s << TestFiles{} << QString() << 0;
        QTest::newRow("the latest keeps its older date while it has room")
            << "p"_s << TestFiles{{"p_3_2025-05-20.txt"_s, 500000}} << "p_3_2025-05-20.txt"_s << 0;
        QTest::newRow("exactly 1,048,576 bytes: stays current")
            << "p"_s << TestFiles{{p26, oneMiB}} << p26 << 0;
        QTest::newRow("one byte more: the next index, started today")
            << "p"_s << TestFiles{{p26, oneMiB + 1}, {"p_4_2025-05-27.txt"_s, oneMiB + 1}}
            << QString() << 5;
        QTest::newRow("indexes compare as numbers: 9 before 10")
            << "p"_s << TestFiles{{"p_9_2025-05-01.txt"_s}, {"p_10_2025-05-02.txt"_s}}
            << "p_10_2025-05-02.txt"_s << 0;
        QTest::newRow("equal indexes: the first in case-insensitive name order")
            << "p"_s << TestFiles{{"p_3_2025-05-27.txt"_s}, {"P_3_2025-05-28.txt"_s}, {p26}} << p26
            << 0;
        QTest::newRow("leading zeros read as the number")
            << "p"_s << TestFiles{{"p_007_x.txt"_s}, {"p_6_x.txt"_s}} << "p_007_x.txt"_s << 0;
        QTest::newRow("names that carry no valid index are ignored")
            << "p"_s
            << TestFiles{{"p_off_5_2025-05-26.txt"_s},
                         {"p__2025-05-26.txt"_s},
                         {"p_-3_x.txt"_s},
                         {"p_9_x.log"_s},
                         {"q_12_x.txt"_s},
                         {"p_2x_y.txt"_s}}
            << QString() << 0;
        QTest::newRow("an empty last part still matches")
            << "p"_s << TestFiles{{"p_2_x.txt"_s}, {"p_3_.txt"_s}} << "p_3_.txt"_s << 0;
        QTest::newRow("a wildcard in the custom name matches as a filter")
            << "p*"_s << TestFiles{{"pa_3_x.txt"_s}} << "pa_3_x.txt"_s << 0;
        QTest::newRow("an invalid wildcard matches nothing")
            << "p["_s << TestFiles{{"p[_3_x.txt"_s}} << QString() << 0;
#ifndef Q_OS_WIN // QFile::link makes a shortcut there, a regular file
        QTest::newRow("a link to a file is no candidate") << "p"_s << TestFiles{{
            "p_8_x.txt"_s,
            0,
            0,
            TestFile::LinkToFile
        }} << QString() << 0;
#endif
    }

    void dated()
    {
        QFETCH(QString, prefix);
        QFETCH(TestFiles, files);
        QFETCH(QString, current);
        QFETCH(int, startedIndex);
        MAKE_FILES(files);
        QString path;
        takeMessages();
        const QDate day = QDate::currentDate();
        QVERIFY(resolveDatedLogPath(prefix, "../../log/dir"_s, path, 500));
        QStringList expected{current};
        if (current.isEmpty()) // the day the call started or ended
            for (const QDate& d : {day, QDate::currentDate()})
                expected << "%1_%2_%3.txt"_s.arg(prefix)
                                .arg(startedIndex)
                                .arg(d.toString("yyyy-MM-dd"_s));
        QVERIFY2(expected.contains(path.section('/', -1)) && path.startsWith("../../log/dir/"_s),
                 qPrintable(path));
        QCOMPARE(fileNames(_tree->path("log/dir"_s)), kept(files, {}));
        QCOMPARE(takeMessages(), QStringList());
    }

    // A missing directory is made, with a message for the indexed logs only; one that
    // cannot be made leaves the path as it was.
    void missingDirectory_data()
    {
        QTest::addColumn<bool>("dated");
        QTest::addColumn<bool>("blocked");
        QTest::addColumn<QString>("message");
        QTest::newRow("indexed, made") << false << false << "make log dir succeded!"_s;
        QTest::newRow("dated, made") << true << false << QString();
        QTest::newRow("indexed, a file in the way") << false << true << "make log dir failed!"_s;
        QTest::newRow("dated, a file in the way") << true << true << "make log dir failed!"_s;
    }

    void missingDirectory()
    {
        QFETCH(bool, dated);
        QFETCH(bool, blocked);
        QFETCH(QString, message);
        QVERIFY(!blocked || makeFile(_tree->path("log"_s)));
        takeMessages();
        QString path = "unchanged"_s;
        const QString dir = "../../log/dir"_s;
        QCOMPARE(dated ? resolveDatedLogPath("p"_s, dir, path, 500)
                       : resolveIndexedLogPath("u_%1.txt"_s, dir, path, 100),
                 !blocked);
        QCOMPARE(takeMessages(), message.isEmpty() ? QStringList() : QStringList{message});
        QCOMPARE(QFileInfo(dir).isDir(), !blocked);
        QCOMPARE(path == "unchanged"_s, blocked);
    }

    // The writer's slot, with small limits: what it deletes in one call.
    void retention_data()
    {
        QTest::addColumn<TestFiles>("files");
        QTest::addColumn<QString>("deleted");
        QTest::newRow("at the limit nothing goes")
            << TestFiles{{"a.txt"_s, 0, 3}, {"b.txt"_s}, {"c.txt"_s}} << QString();
        QTest::newRow("one over: the least recently read goes")
            << TestFiles{{"a.txt"_s}, {"b.txt"_s, 0, 2}, {"c.txt"_s, 0, 1}, {"d.txt"_s}}
            << "b.txt"_s;
        QTest::newRow("far over: one file per call")
            << numbered("f%1.txt"_s, 1, 6) + TestFiles{{"old.txt"_s, 0, 1}} << "old.txt"_s;
        QTest::newRow("equal times: the first in name order")
            << TestFiles{{"b.txt"_s, 0, 1}, {"a.txt"_s, 0, 1}, {"c.txt"_s}, {"d.txt"_s}}
            << "a.txt"_s;
        QTest::newRow("REPORT.TXT counts and can go")
            << TestFiles{{"REPORT.TXT"_s, 0, 1}, {"a.txt"_s}, {"b.txt"_s}, {"c.txt"_s}}
            << "REPORT.TXT"_s;
        QTest::newRow("other extensions neither count nor go")
            << TestFiles{{"a.log"_s, 0, 2}, {"b.log"_s}, {"c.txt"_s}, {"d.txt"_s}, {"e.txt"_s}}
            << QString();
        QTest::newRow("the candidate cannot be deleted: nothing else goes")
            << TestFiles{{"a.txt"_s, 0, 2, TestFile::Held},
                         {"b.txt"_s, 0, 1},
                         {"c.txt"_s},
                         {"d.txt"_s}}
            << QString();
    }

    void retention()
    {
        QFETCH(TestFiles, files);
        QFETCH(QString, deleted);
        MAKE_FILES(files);
        UserLogWriter writer; // its banner's messages before the capture
        takeMessages();
        writer.deleteOldestFiles("../../log/dir"_s, 3);
        QCOMPARE(fileNames(_tree->path("log/dir"_s)), kept(files, {deleted}));
        QCOMPARE(takeMessages(), QStringList());
    }

    // The folder as QDir takes it: an empty path names the working directory, and a
    // missing folder is not made.
    void retentionFolders()
    {
        UserLogWriter writer;
        QVERIFY(makeFile("old.txt"_s) && makeFile("new.txt"_s));
        const QDateTime dayAgo = QDateTime::currentDateTime().addDays(-1);
        QVERIFY(setFileTimes("old.txt"_s, dayAgo, dayAgo));
        writer.deleteOldestFiles(QString(), 1);
        QCOMPARE(fileNames("."_s), QStringList{"new.txt"_s});
        writer.deleteOldestFiles("../../log/none"_s, 0);
        QVERIFY(!QFileInfo::exists("../../log/none"_s));
    }

    // Names equal but for case can coexist; the listing's order must not decide between them.
    void datedTiesIgnoreListingOrder()
    {
        const QStringList names{"p_3_b.txt"_s, "P_3_a.txt"_s, "p_3_A.txt"_s, "p_3_a.txt"_s,
                                "p_2_0.txt"_s};
        for (int rotation = 0; rotation < 2 * names.size(); ++rotation) {
            QVector<ListedFile> files;
            for (int i = 0; i < names.size(); ++i) // every rotation, forwards and backwards
                files.append({names.at((rotation < names.size() ? rotation + i : rotation - i) %
                                       names.size()),
                              false});
            QString latest;
            QCOMPARE(latestDatedFile(files, "p"_s, QString(), &latest), 3);
            QCOMPARE(latest, "P_3_a.txt"_s);
        }
    }

    // As with QDir::Files: a link to a file counts, as a link; a link to nothing or
    // to a directory does not, nor does a subdirectory.
    void nativeListingOfLinks()
    {
#ifdef Q_OS_WIN
        const QString link = ".lnk"_s; // shell shortcuts: Wine cannot make symbolic links
#else
        const QString link;
#endif
        const QString dir = _tree->path("log/dir/"_s);
        QVERIFY(makeFile(dir + "file.txt"_s) && QDir().mkpath(dir + "sub"_s));
        QVERIFY(QFile::link(dir + "file.txt"_s, dir + "to_file"_s + link));
        QVERIFY(QFile::link(dir + "gone.txt"_s, dir + "to_nothing"_s + link));
        QVERIFY(QFile::link(dir + "sub"_s, dir + "to_dir"_s + link));
        const QStringList listed = listedNames(listFiles("../../log/dir"_s));
        QCOMPARE(listed, (QStringList{"file.txt"_s, "to_file"_s + link + " (link)"_s}));
        QCOMPARE(listed, qdirNames(dir));
        QVERIFY(listFiles("../../log/missing"_s).isEmpty());
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
    // Makes the files in log/dir: an empty text, cannotHold, or what failed.
    QString makeFiles(const TestFiles& files)
    {
        const QString dir = _tree->path("log/dir/"_s), target = _tree->path("target"_s);
        const QDateTime now = QDateTime::currentDateTime(); // equal ages stay equal
        QDir().mkpath(dir);
        for (const TestFile& file : files) {
            const QString path = dir + file.name;
            const QDateTime time = now.addDays(-file.daysOld);
            if (file.kind == TestFile::LinkToFile
                    ? !makeFile(target) || !QFile::link(target, path)
                    : !makeFile(path, file.size) || !setFileTimes(path, time, time))
                return "cannot make "_s + path;
            if (file.kind == TestFile::Held && !_held.emplace_back(holdFile(path)))
                return cannotHold;
        }
        return QString();
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

    const QString cannotHold = "no file can be held here: mount --bind needs root"_s;
    std::optional<TestTree> _tree;
    std::vector<std::shared_ptr<void>> _held;
};

QTEST_GUILESS_MAIN(TestLogFiles)
#include "tst_logfiles.moc"
