// File resolution and retention of the log directories: one named row per stated
// rule and boundary, ties that the listing order must not decide, the native
// listing's links, and randomised directories checked against a model written
// from the rules and against the portable directory listing.
//
// The random cases run from a fixed seed; USERLOG_PROPERTY_SEED=<seed> replays a
// failing case or explores from another seed.
#include "testtree.h"
#include "userlog/writer/logfiles.h"
#include "userlog/writer/userlogwriter.h"

#include <QtTest/QtTest>

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

using namespace logfiles;

namespace {

// One entry the test makes in log/dir before the call.
struct Entry
{
    enum Kind
    {
        File,
        Directory,
        LinkToFile,
        Held, // a file that cannot be deleted while the test runs
    };
    QString name;
    qint64 size = 0;
    Kind kind = File;
    int modifiedDaysAgo = 0;
    bool readLongAgo = false; // read a day before all other files
};
using Entries = QVector<Entry>;

Entries files(const QString& pattern, int from, int to)
{
    Entries result;
    for (int i = from; i <= to; ++i)
        result.append({pattern.arg(i)});
    return result;
}

enum class Call
{
    Indexed,      // resolveIndexedLogPath(argument, "../../log/dir", path, 100)
    Dated,        // resolveDatedLogPath(argument, "../../log/dir", path, 500)
    DeleteOldest, // the writer's slot deleteOldestFiles("../../log/dir", 500)
};

const QString dirPath = "../../log/dir"_s;

// The indexed resolver's path: absolute, the native separator before the name.
QString absoluteLogFile(const QString& name)
{
    return QDir::cleanPath(QDir::currentPath() + '/' + dirPath) + QDir::separator() + name;
}

} // namespace

Q_DECLARE_METATYPE(Entry)
Q_DECLARE_METATYPE(Call)

namespace {

// ---- The model of the rules, for random directories --------------------------

// The index of any file in an indexed directory: the text after the last "_" of the
// part before the first ".", read as a number, or 0.
int ruleIndex(const QString& name)
{
    const QString base = name.left(name.indexOf('.') < 0 ? name.size() : name.indexOf('.'));
    return base.mid(base.lastIndexOf('_') + 1).toInt();
}

// What the indexed resolver may do with files: delete lowest-index files one at a
// time while limit or more are left, then take the highest index and skip full
// files of the pattern. Which of several equal-index files goes first the rules
// leave open, so only what they fix is checked. An empty text when all is well.
QString checkIndexed(const QFileInfoList& before, const QString& pattern, int limit,
                     const QStringList& after, const QString& chosen)
{
    QVector<int> left;
    for (const QFileInfo& file : before)
        left.append(ruleIndex(file.fileName()));
    std::sort(left.begin(), left.end());
    while (left.size() >= limit)
        left.removeFirst();
    if (after.size() != left.size())
        return "kept %1 files, the rules keep %2"_s.arg(after.size()).arg(left.size());
    QVector<int> kept;
    for (const QString& name : after)
        kept.append(ruleIndex(name));
    std::sort(kept.begin(), kept.end());
    if (kept != left)
        return "kept indexes differ from the lowest-first deletion"_s;
    qint64 index = left.isEmpty() ? 0 : left.last();
    const auto fullFile = [&](qint64 i) {
        const QFileInfo file(dirPath + '/' + QString(pattern).replace("%1"_s, QString::number(i)));
        return file.exists() && file.size() > maxLogFileSize;
    };
    while (pattern.contains("%1"_s) && fullFile(index))
        ++index;
    const QString expected =
        absoluteLogFile(QString(pattern).replace("%1"_s, QString::number(index)));
    return chosen == expected ? QString() : "chose "_s + chosen + ", the rules "_s + expected;
}

// Whether name has the form prefix + "_" + anything + "_" + anything + ".txt",
// case-insensitively.
bool isDatedCandidate(const QString& name, const QString& prefix)
{
    const QString lower = name.toLower(), head = prefix.toLower() + '_';
    if (!lower.startsWith(head) || !lower.endsWith(".txt"_s))
        return false;
    return lower.mid(head.size(), lower.size() - head.size() - 4).contains('_');
}

// What the dated resolver may do: delete the least recently read ".txt" file (the
// first by name among equal times) when more than limit are there; then take the
// candidate with the highest valid index, the first in case-insensitive name order
// among equal ones, and start the next index today when it is full. (The random
// names never differ only in case; datedTiesIgnoreListingOrder covers that.)
QString checkDated(QFileInfoList before, const QString& prefix, int limit, const QStringList& after,
                   const QString& chosen, const QString& today)
{
    QFileInfoList txt;
    for (const QFileInfo& file : before)
        if (file.fileName().endsWith(".txt"_s, Qt::CaseInsensitive))
            txt.append(file);
    if (txt.size() > limit) {
        QFileInfo oldest = txt.first();
        for (const QFileInfo& file : txt)
            if (file.lastRead() < oldest.lastRead() ||
                (file.lastRead() == oldest.lastRead() && file.fileName() < oldest.fileName()))
                oldest = file;
        before.removeOne(oldest);
    }
    QStringList kept;
    for (const QFileInfo& file : before)
        kept << file.fileName();
    kept.sort();
    if (kept != after)
        return "left "_s + after.join(' ') + ", the rules "_s + kept.join(' ');
    int highest = -1;
    QString latest;
    for (const QFileInfo& file : before) {
        const QString name = file.fileName();
        bool valid = false;
        const QString text = name.mid(prefix.size() + 1, name.lastIndexOf('_') - prefix.size() - 1);
        const int index = text.toInt(&valid);
        if (!file.isSymLink() && isDatedCandidate(name, prefix) && !text.isEmpty() && valid &&
            index >= 0 &&
            (index > highest || (index == highest && name.toLower() < latest.toLower()))) {
            highest = index;
            latest = name;
        }
    }
    const bool full = latest.isEmpty() || QFileInfo(dirPath + '/' + latest).size() > maxLogFileSize;
    const QString expected =
        dirPath + '/' +
        (full ? prefix + '_' + QString::number(highest + 1) + '_' + today + ".txt"_s : latest);
    return chosen == expected ? QString() : "chose "_s + chosen + ", the rules "_s + expected;
}

// Names that follow the pattern or the prefix, and strays of every kind: leading
// zeros, other extensions and cases, negative, huge or missing indexes, hidden
// files, subdirectories and links (to a file, to nothing, to a directory; shell
// shortcuts on Windows). Sizes mostly right at the full-file threshold; ages in
// whole hours, so that some are equal.
void makeRandomFiles(QRandomGenerator& rng, const QString& dir, const QString& base, bool dated,
                     int count)
{
    const QDateTime now = QDateTime::currentDateTime();
    QDir().mkpath(dir);
#ifdef Q_OS_WIN
    const QString linkSuffix = ".lnk"_s; // what QFile::link makes there
#else
    const QString linkSuffix;
#endif
    for (; count > 0; --count) {
        const QString i = QString::number(rng.bounded(count + 3));
        const QString tail = "_2025-05-"_s + QString::number(10 + rng.bounded(20)) + ".txt"_s;
        const QString forms[] = {dated ? base + '_' + i + tail : QString(base).replace("%1"_s, i),
                                 dated ? base.toUpper() + '_' + i + "_2025-06-01.TXT"_s
                                       : QString(base).replace("%1"_s, "00"_s + i),
                                 base + "_00"_s + i + tail,
                                 base + "_off_"_s + i + tail,
                                 base + "_-"_s + i + tail,
                                 base + "_99999999999"_s + tail,
                                 base + '_' + i + ".txt"_s,
                                 "notes_"_s + i + ".log"_s,
                                 "readme.txt"_s,
                                 ".hidden_"_s + i + ".txt"_s,
                                 "n\u00e4me_"_s + i + '/',
                                 "link_"_s + i + ".txt"_s + linkSuffix};
        const QString name = forms[rng.bounded(2) == 0 ? 0 : rng.bounded(12)];
        const QString path = dir + '/' + name;
        const qint64 offsets[] = {-1, 0, 1, 4096};
        const QDateTime time = now.addSecs(-rng.bounded(4) * 3600);
        if (QFileInfo::exists(path) || QFileInfo(path).isSymLink()) {
            continue;
        } else if (path.endsWith('/')) {
            QDir().mkpath(path);
        } else if (name.startsWith("link_"_s)) {
            // Aimed outside the directory, so that the retention cannot break a link.
            makeFile(dir + "/../target.txt"_s);
            const QString targets[] = {dir + "/../target.txt"_s, dir + "/../gone.txt"_s,
                                       dir + "/.."_s};
            QFile::link(QFileInfo(targets[rng.bounded(3)]).absoluteFilePath(), path);
        } else if (makeFile(path,
                            maxLogFileSize + offsets[rng.bounded(4)] - rng.bounded(2) * 300000)) {
            setFileTimes(path, time, dated ? now : time);
        }
    }
}

QStringList listedNames(const QVector<ListedFile>& listed)
{
    QStringList result;
    for (const ListedFile& file : listed)
        result << file.name + (file.isSymLink ? " (link)"_s : QString());
    result.sort();
    return result;
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
    makeRandomFiles(rng, dirPath, base, dated, rng.bounded(limit + 4));
    const QFileInfoList before = QDir(dirPath).entryInfoList(QDir::Files);
    // The native listing sees what the portable one sees, links included.
    if (listedNames(listFiles(dirPath)) != listedNames(listFilesPortable(dirPath)))
        return "listings differ: "_s + listedNames(listFiles(dirPath)).join(' ') + " / "_s +
               listedNames(listFilesPortable(dirPath)).join(' ');
    QString path;
    const QString day = today();
    const bool resolved = dated ? resolveDatedLogPath(base, dirPath, path, limit)
                                : resolveIndexedLogPath(base, dirPath, path, limit);
    if (!resolved)
        return "resolution failed"_s;
    const QStringList after = fileNames(dirPath);
    QString failure = dated ? checkDated(before, base, limit, after, path, day)
                            : checkIndexed(before, base, limit, after, path);
    if (!failure.isEmpty() && dated && day != today()) // started across midnight
        failure = checkDated(before, base, limit, after, path, today());
    QDir(dirPath).removeRecursively();
    return failure;
}

} // namespace

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

    void resolution_data()
    {
        QTest::addColumn<Call>("call");
        QTest::addColumn<QString>("argument"); // the name pattern or prefix
        QTest::addColumn<Entries>("entries");
        // The file chosen; with startsToday, its name up to today's date. Empty: no
        // directory is there after the call.
        QTest::addColumn<QString>("current");
        QTest::addColumn<bool>("startsToday");
        QTest::addColumn<QStringList>("deleted"); // all other entries must be left

        const QString u = "user_log_file_%1.txt"_s, p = "user_print_file"_s;
        const qint64 mib = maxLogFileSize;
        const auto indexed = [&](const char* name, const Entries& entries, const QString& current,
                                 const QStringList& deleted = {}) {
            QTest::newRow(name) << Call::Indexed << u << entries << current << false << deleted;
        };
        const auto dated = [&](const char* name, const Entries& entries, const QString& current,
                               bool startsToday = false,
                               const QString& prefix = "user_print_file"_s) {
            QTest::newRow(name) << Call::Dated << prefix << entries << current << startsToday
                                << QStringList();
        };

        indexed("indexed: exactly 1 MiB stays current",
                files(u, 0, 3) + Entries{{"user_log_file_4.txt"_s, mib}}, "user_log_file_4.txt"_s);
        indexed("indexed: one byte more rolls on to the next index",
                files(u, 0, 3) + Entries{{"user_log_file_4.txt"_s, mib + 1}},
                "user_log_file_5.txt"_s);
        indexed("indexed: indexes compare as numbers, 10 after 3",
                Entries{{"user_log_file_3.txt"_s}, {"user_log_file_10.txt"_s}},
                "user_log_file_10.txt"_s);
        indexed("indexed: user_log_file_007.txt gives the path of index 7",
                Entries{{"user_log_file_007.txt"_s}, {"user_log_file_6.txt"_s}},
                "user_log_file_7.txt"_s);
        indexed("indexed: 100 files, the lowest index deleted and 99 left", files(u, 0, 99),
                "user_log_file_99.txt"_s, {"user_log_file_0.txt"_s});
        indexed("indexed: a stray readme.txt reads as index 0 and goes first",
                files(u, 1, 99) + Entries{{"readme.txt"_s}}, "user_log_file_99.txt"_s,
                {"readme.txt"_s});
        indexed("indexed: a stray notes_900.txt makes index 900 current",
                files(u, 0, 4) + Entries{{"notes_900.txt"_s}}, "user_log_file_900.txt"_s);
        // Equal indexes go oldest-modified first, whatever the listing order: the two
        // rows swap the ages, so no one listing order passes both.
        indexed("indexed: equal indexes, the oldest modified deleted first",
                files(u, 1, 98) + Entries{{"a.txt"_s, 0, Entry::File, 1}} +
                    Entries{{"m.txt"_s, 0, Entry::File, 3}} +
                    Entries{{"z.txt"_s, 0, Entry::File, 2}},
                "user_log_file_98.txt"_s, {"m.txt"_s, "z.txt"_s});
        indexed("indexed: equal indexes, ages swapped",
                files(u, 1, 98) + Entries{{"a.txt"_s, 0, Entry::File, 3}} +
                    Entries{{"m.txt"_s, 0, Entry::File, 1}} +
                    Entries{{"z.txt"_s, 0, Entry::File, 2}},
                "user_log_file_98.txt"_s, {"a.txt"_s, "z.txt"_s});
        indexed("indexed: an undeletable lowest file stops the retention",
                files(u, 1, 99) + Entries{{"user_log_file_0.txt"_s, 0, Entry::Held}},
                "user_log_file_99.txt"_s);
        QTest::newRow("indexed: a pattern without %1 names its one file, full or not")
            << Call::Indexed << "user_print_file_off"_s
            << Entries{{"user_print_file_off"_s, mib + 1}} + Entries{{"x_5.txt"_s}}
            << "user_print_file_off"_s << false << QStringList();

        dated("dated: no valid candidate starts index 0 today",
              Entries{{"user_print_file_off_5_x.txt"_s},
                      {"user_print_file_-3_x.txt"_s},
                      {"user_print_file__2025-05-26.txt"_s}} +
                  Entries{{"user_print_file_9_x.txt"_s, 0, Entry::Directory}},
              "user_print_file_0_"_s, true);
        dated("dated: exactly 1 MiB stays current, its old date kept",
              Entries{{"user_print_file_3_2025-05-20.txt"_s, mib}},
              "user_print_file_3_2025-05-20.txt"_s);
        dated("dated: one byte more starts the next index today",
              Entries{{"user_print_file_3_2025-05-26.txt"_s, mib + 1}}, "user_print_file_4_"_s,
              true);
        dated("dated: indexes compare as numbers, 10 after 9",
              Entries{{"user_print_file_9_2025-05-01.txt"_s},
                      {"user_print_file_10_2025-05-02.txt"_s}},
              "user_print_file_10_2025-05-02.txt"_s);
        dated("dated: 007 reads as index 7",
              Entries{{"user_print_file_007_2025-05-26.txt"_s},
                      {"user_print_file_6_2025-05-27.txt"_s}},
              "user_print_file_007_2025-05-26.txt"_s);
        dated(
            "dated: equal indexes, the first in case-insensitive name order",
            Entries{{"user_print_file_3_2025-05-27.txt"_s}, {"User_Print_File_3_2025-05-26.txt"_s}},
            "User_Print_File_3_2025-05-26.txt"_s);
#ifndef Q_OS_WIN // QFile::link makes a shortcut there, a regular file
        dated("dated: a link is no candidate",
              Entries{
                  { "user_print_file_8_x.txt"_s,
                    0,
                    Entry::LinkToFile }},
              "user_print_file_0_"_s, true);
#endif
        // A custom name may hold wildcards; an invalid pattern matches nothing.
        dated("dated: a prefix with a wildcard matches as one", Entries{{"pa_3_x.txt"_s}},
              "pa_3_x.txt"_s, false, "p*"_s);
        dated("dated: an invalid wildcard prefix matches nothing", Entries{{"p[_3_x.txt"_s}},
              "p[_0_"_s, true, "p["_s);
        QTest::newRow("dated: the directory cannot be made")
            << Call::Dated << p << Entries{{"../../log"_s}} << QString() << false << QStringList();

        QTest::newRow("delete: 501 .txt files, the least recently read goes, .TXT too")
            << Call::DeleteOldest << QString()
            << files("f%1.txt"_s, 1, 500) + Entries{{"REPORT.TXT"_s, 0, Entry::File, 0, true}}
            << "-"_s << false << QStringList{"REPORT.TXT"_s};
        QTest::newRow("delete: 500 .txt files beside other files, none goes")
            << Call::DeleteOldest << QString()
            << files("f%1.txt"_s, 1, 500) + Entries{{"old.log"_s, 0, Entry::File, 0, true}} << "-"_s
            << false << QStringList();
        QTest::newRow("delete: an undeletable oldest file, none goes")
            << Call::DeleteOldest << QString()
            << files("f%1.txt"_s, 1, 500) + Entries{{"f0.txt"_s, 0, Entry::Held, 0, true}} << "-"_s
            << false << QStringList();
        QTest::newRow("delete: a missing directory is not made")
            << Call::DeleteOldest << QString() << Entries() << QString() << false << QStringList();
    }

    void resolution()
    {
        QFETCH(Call, call);
        QFETCH(QString, argument);
        QFETCH(Entries, entries);
        QFETCH(QString, current);
        QFETCH(bool, startsToday);
        QFETCH(QStringList, deleted);
        if (!makeEntries(entries))
            QSKIP("no file can be held here: mount --bind needs root");
        QStringList kept;
        for (const Entry& entry : qAsConst(entries))
            if (entry.kind != Entry::Directory && !entry.name.contains('/') &&
                !deleted.contains(entry.name))
                kept << entry.name;
        kept.sort();
        std::optional<UserLogWriter> writer; // its banner's messages before the capture
        if (call == Call::DeleteOldest)
            writer.emplace();
        takeMessages();
        QString path = "unchanged"_s;
        const QString day = today();
        if (call == Call::DeleteOldest)
            writer->deleteOldestFiles(dirPath, 500);
        else if (call == Call::Indexed)
            QCOMPARE(resolveIndexedLogPath(argument, dirPath, path, 100), !current.isEmpty());
        else
            QCOMPARE(resolveDatedLogPath(argument, dirPath, path, 500), !current.isEmpty());
        if (call == Call::Indexed && !current.isEmpty())
            QCOMPARE(path, absoluteLogFile(current));
        if (call == Call::Dated && !current.isEmpty() && startsToday)
            QVERIFY2(path == dirPath + '/' + current + day + ".txt"_s ||
                         path == dirPath + '/' + current + today() + ".txt"_s,
                     qPrintable(path));
        else if (call == Call::Dated && !current.isEmpty())
            QCOMPARE(path, dirPath + '/' + current);
        const bool made = !current.isEmpty();
        QCOMPARE(takeMessages(), made || call == Call::DeleteOldest
                                     ? QStringList()
                                     : QStringList{"make log dir failed!"_s});
        QCOMPARE(QDir(_tree->path("log/dir"_s)).entryList(QDir::Files | QDir::Hidden, QDir::Name),
                 kept);
        QCOMPARE(QFileInfo::exists(_tree->path("log/dir"_s)), made);
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
        const QString link = ".lnk"_s; // a shell shortcut: Wine cannot make symbolic links
#else
        const QString link;
#endif
        const QString dir = _tree->path("log/dir/"_s);
        QVERIFY(makeFile(dir + "file.txt"_s) && QDir().mkpath(dir + "sub"_s));
        QVERIFY(QFile::link(dir + "file.txt"_s, dir + "to_file"_s + link));
        QVERIFY(QFile::link(dir + "gone.txt"_s, dir + "to_nothing"_s + link));
        QVERIFY(QFile::link(dir + "sub"_s, dir + "to_dir"_s + link));
        QCOMPARE(listedNames(listFiles(dirPath)),
                 (QStringList{"file.txt"_s, "to_file"_s + link + " (link)"_s}));
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
        const QString seed = qEnvironmentVariable("USERLOG_PROPERTY_SEED");
        const quint32 first = seed.isEmpty() ? 20261124 : seed.toUInt();
        QLoggingCategory::setFilterRules("default.debug=false"_s); // the directory messages
        for (quint32 seed = first; seed != first + 300; ++seed) {
            const QString failure = checkRandomDirectory(seed, dated);
            QVERIFY2(failure.isEmpty(),
                     qPrintable("seed %1: %2 (replay: USERLOG_PROPERTY_SEED=%1)"_s.arg(seed).arg(
                         failure)));
        }
    }

private:
    // Makes the entries in log/dir ("../../log" given as a name makes a file where
    // the log directory must be).
    bool makeEntries(const Entries& entries)
    {
        const QDateTime now = QDateTime::currentDateTime();
        const QString target = _tree->path("target"_s);
        makeFile(target);
        for (const Entry& entry : entries) {
            const QString path = QDir::cleanPath(_tree->path("log/dir/"_s) + entry.name);
            bool made = entry.kind == Entry::Directory ? QDir().mkpath(path)
                        : entry.kind == Entry::LinkToFile
                            ? QDir().mkpath(QFileInfo(path).path()) && QFile::link(target, path)
                            : makeFile(path, entry.size);
            if (entry.kind != Entry::Directory && entry.kind != Entry::LinkToFile)
                made = made && setFileTimes(path, entry.readLongAgo ? now.addDays(-1) : now,
                                            now.addDays(-entry.modifiedDaysAgo));
            if (!made || (entry.kind == Entry::Held && !_held.emplace_back(holdFile(path))))
                return false;
        }
        return true;
    }

    std::optional<TestTree> _tree;
    std::vector<std::shared_ptr<void>> _held;
};

QTEST_GUILESS_MAIN(TestLogFiles)
#include "tst_logfiles.moc"
