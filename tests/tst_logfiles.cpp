// File resolution and retention of the log directories: worked examples in a
// small directory notation, ties that the listing order must not decide, and
// randomised directories checked against a model of the rules and against the
// portable directory listing.
//
// The randomised cases start from a fixed seed; USERLOG_PROPERTY_SEED=<seed> replays a
// failing case or explores from another seed.
#include "testtree.h"
#include "userlog/writer/logfiles.h"
#include "userlog/writer/userlogwriter.h"

#include <QtTest/QtTest>

#include <algorithm>
#include <memory>
#include <optional>
#include <tuple>
#include <vector>

using namespace logfiles;

namespace {

// Space-separated names; "u_[0-99].txt" stands for u_0.txt to u_99.txt.
QStringList expand(const QString& names)
{
    static const QRegularExpression range("\\[(\\d+)-(\\d+)\\]"_s);
    QStringList result;
    for (const QString& name : names.split(' ', Qt::SkipEmptyParts)) {
        const QRegularExpressionMatch m = range.match(name);
        if (!m.hasMatch())
            result << name;
        for (int i = m.captured(1).toInt(); m.hasMatch() && i <= m.captured(2).toInt(); ++i)
            result << QString(name).replace(m.capturedStart(), m.capturedLength(),
                                            QString::number(i));
    }
    return result;
}

QString nameOf(const QString& entry)
{
    return entry.section(QRegularExpression("[=@]"_s), 0, 0);
}

// The indexed resolver's path: absolute, the native separator before the name.
QString absoluteLogFile(const QString& dirPath, const QString& name)
{
    return QDir::cleanPath(QDir::currentPath() + '/' + dirPath) + QDir::separator() + name;
}

} // namespace

namespace {

// Names that follow the pattern or the prefix, and strays of every kind: leading zeros, other
// extensions and cases, negative, huge or missing indexes, hidden files. Sizes mostly right at
// the full-file threshold; ages in whole hours, so that some are equal. Subdirectories too.
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
                                 "notes_"_s + i + ".log"_s,
                                 "readme.txt"_s,
                                 ".hidden_"_s + i + ".txt"_s,
                                 "n\u00e4me_"_s + i + '/',
                                 "link_"_s + i + ".txt"_s + linkSuffix};
        const QString path = dir + '/' + forms[rng.bounded(2) == 0 ? 0 : rng.bounded(12)];
        const qint64 offsets[] = {-1, 0, 1, 4096};
        const QDateTime time = now.addSecs(-rng.bounded(4) * 3600);
        if (path.endsWith('/')) {
            QDir().mkpath(path);
        } else if (path.contains("/link_"_s) && !QFileInfo(path).isSymLink()) {
            // To a file, to nothing, to a directory: outside the directory, so that
            // the retention cannot break a link.
            const QString targets[] = {"/../target.txt"_s, "/../gone.txt"_s, "/.."_s};
            makeFile(dir + targets[0]);
            QFile::link(QFileInfo(dir + targets[rng.bounded(3)]).absoluteFilePath(), path);
        } else if (!QFileInfo::exists(path) &&
                   makeFile(path,
                            maxLogFileSize + offsets[rng.bounded(4)] - rng.bounded(2) * 300000))
            setFileTimes(path, time, dated ? now : time);
    }
}

// The index rule read with QString::toInt: what follows the last "_" before the first ".".
int modelIndex(const QFileInfo& file)
{
    return file.fileName().section('.', 0, 0).section('_', -1).toInt();
}

// Lowest index, then oldest, then name deleted while the limit is reached; the highest
// index current, full files skipped.
QString indexedModel(QFileInfoList& files, const QString& pattern, int limit)
{
    std::sort(files.begin(), files.end(), [](const QFileInfo& a, const QFileInfo& b) {
        return std::make_tuple(modelIndex(a), a.lastModified(), a.fileName()) <
               std::make_tuple(modelIndex(b), b.lastModified(), b.fileName());
    });
    if (files.size() >= limit)
        files.erase(files.begin(),
                    files.begin() + std::min(files.size() - limit + 1, files.size() - 1));
    qint64 index = files.isEmpty() ? 0 : modelIndex(files.last());
    const auto full = [&](qint64 i) {
        return std::any_of(files.begin(), files.end(), [&](const QFileInfo& f) {
            return f.fileName() == indexedFileName(pattern, i) && f.size() > maxLogFileSize;
        });
    };
    while (pattern.contains("%1"_s) && full(index))
        ++index;
    return indexedFileName(pattern, index);
}

// The least recently read ".txt" file deleted past the limit; the highest valid index of a
// candidate current (ties by name, case folded first), the next one started when it is full.
QString datedModel(QFileInfoList& files, const QString& prefix, int limit)
{
    const auto isTxt = [](const QFileInfo& f) { return f.suffix().toLower() == "txt"_s; };
    if (std::count_if(files.begin(), files.end(), isTxt) > limit)
        files.erase(std::min_element(files.begin(), files.end(), [&](auto& a, auto& b) {
            return std::make_tuple(!isTxt(a), a.lastRead(), a.fileName()) <
                   std::make_tuple(!isTxt(b), b.lastRead(), b.fileName());
        }));
    const QRegularExpression candidate(
        QRegularExpression::wildcardToRegularExpression(prefix + "_*_*.txt"_s),
        QRegularExpression::CaseInsensitiveOption);
    const QFileInfo* latest = nullptr;
    int highest = -1;
    for (const QFileInfo& file : qAsConst(files)) {
        const QString name = file.fileName();
        bool ok = false;
        const int index =
            name.mid(prefix.size() + 1, name.lastIndexOf('_') - prefix.size() - 1).toInt(&ok);
        if (ok && index >= std::max(highest, 0) && candidate.match(name).hasMatch() &&
            (index > highest ||
             std::make_pair(name.toLower(), name) <
                 std::make_pair(latest->fileName().toLower(), latest->fileName()))) {
            highest = index;
            latest = &file;
        }
    }
    if (latest != nullptr && latest->size() <= maxLogFileSize)
        return latest->fileName();
    return datedFileName(prefix, highest + 1, QDate::currentDate());
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
    QFileInfoList files = QDir(dir).entryInfoList(QDir::Files);
    // The native listing sees what the portable one sees.
    const auto names = [](const QVector<ListedFile>& listed) {
        QStringList result;
        for (const ListedFile& file : listed)
            result << file.name + (file.isSymLink ? " (link)"_s : QString());
        result.sort();
        return result;
    };
    if (names(listFiles(dir)) != names(listFilesPortable(dir)))
        return "listings differ: "_s + names(listFiles(dir)).join(' ');
    const QString name = dated ? datedModel(files, base, limit) : indexedModel(files, base, limit);
    QStringList kept;
    for (const QFileInfo& file : qAsConst(files))
        kept << file.fileName();
    kept.sort();
    QString path;
    const bool resolved = dated ? resolveDatedLogPath(base, dir, path, limit)
                                : resolveIndexedLogPath(base, dir, path, limit);
    const QString expected = dated ? dir + '/' + name : absoluteLogFile(dir, name);
    const QString failure = !resolved          ? "resolution failed"_s
                            : path != expected ? "chose "_s + path + ", expected "_s + expected
                            : fileNames(dir) != kept ? "left "_s + fileNames(dir).join(' ')
                                                     : QString();
    QDir(dir).removeRecursively();
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
        // call on ../../log/dir: "indexed <pattern>" (limit 100), "dated <prefix>" (limit 500),
        // "delete" (the writer's slot deleteOldestFiles by name, limit 500) or "delete here" (the
        // same with an empty path: the working directory); entries as makeEntries() makes them;
        // current: the file chosen, "-" when no directory is there after; deleted: the files that
        // must be gone, all others must be left.
        for (const char* column : {"call", "entries", "current", "deleted"})
            QTest::addColumn<QString>(column);
        // Equal indexes go oldest-modified first, whatever the listing order: the two rows
        // swap the ages, so no one listing order passes both.
        addRow("indexed: ties by age", "indexed u_%1.txt", "u_[1-98].txt a.txt@1 m.txt@3 z.txt@2",
               "u_98.txt", "m.txt z.txt");
        addRow("indexed: ties by age, swapped", "indexed u_%1.txt",
               "u_[1-98].txt a.txt@3 m.txt@1 z.txt@2", "u_98.txt", "a.txt z.txt");
        addRow("indexed: undeletable", "indexed u_%1.txt", "u_[1-99].txt u_0.txt@b", "u_99.txt",
               "");
        addRow("dated: directory cannot be made", "dated p", "../../log", "-", "");
        addRow("dated: no candidates", "dated p", "p_off_5_x.txt p_-3_x.txt p_9_x.txt/",
               "p_0_<today>.txt", "");
#ifndef Q_OS_WIN // QFile::link makes a shortcut there, a regular file
        addRow("dated: a link is no candidate", "dated p", "p_8_x.txt@l", "p_0_<today>.txt", "");
#endif
        addRow("dated: empty last part", "dated p", "p_2_x.txt p_3_.txt", "p_3_.txt", "");
        // A custom name may hold wildcards; an invalid pattern matches nothing.
        addRow("dated: wildcard prefix", "dated p*", "pa_3_x.txt", "pa_3_x.txt", "");
        addRow("dated: invalid wildcard prefix", "dated p[", "p[_3_x.txt", "p[_0_<today>.txt", "");
        addRow("delete: undeletable", "delete", "f[1-500].txt f0.txt@rb", "", "");
        addRow("delete: missing directory", "delete", "", "-", ""); // and not made
        addRow("delete here: working directory", "delete here",
               "../../app/bin/f[1-501].txt ../../app/bin/old.txt@r", "", "../../app/bin/old.txt");
    }

    void resolution()
    {
        QFETCH(QString, call);
        QFETCH(QString, entries);
        QFETCH(QString, current);
        QFETCH(QString, deleted);
        if (!makeEntries(expand(entries)))
            QSKIP("no file can be held here: mount --bind needs root");
        const bool here = call == "delete here"_s;
        const QString dir = _tree->path(here ? "app/bin"_s : "log/dir"_s);
        QStringList kept;
        for (const QString& entry : expand(entries)) {
            const QFileInfo file(QDir::cleanPath(_tree->path("log/dir/"_s) + nameOf(entry)));
            if (!entry.endsWith('/') && file.path() == dir &&
                !expand(deleted).contains(nameOf(entry)))
                kept << file.fileName();
        }
        kept.sort();
        const QString logDir = "../../log/dir"_s, arg = call.section(' ', 1);
        const bool made = current != "-"_s, deleting = call.startsWith("delete"_s);
        std::optional<UserLogWriter> writer; // its banner's messages before the capture
        if (deleting)
            writer.emplace();
        takeMessages();
        QString path = "unchanged"_s, expected = path;
        if (deleting) {
            writer->deleteOldestFiles(here ? QString() : logDir, 500);
        } else if (call.startsWith("indexed"_s)) {
            QCOMPARE(resolveIndexedLogPath(arg, logDir, path, 100), made);
            expected = made ? absoluteLogFile(logDir, current) : path;
        } else {
            QCOMPARE(resolveDatedLogPath(arg, logDir, path, 500), made);
            expected = made ? logDir + '/' + current.replace("<today>"_s, today()) : path;
        }
        QCOMPARE(path, expected);
        QCOMPARE(takeMessages(),
                 made || deleting ? QStringList() : QStringList{"make log dir failed!"_s});
        QCOMPARE(QDir(dir).entryList(QDir::Files | QDir::Hidden, QDir::Name), kept);
        QCOMPARE(QFileInfo::exists(dir), made);
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
        QStringList listed;
        for (const ListedFile& file : listFiles("../../log/dir"_s))
            listed << file.name + (file.isSymLink ? " (link)"_s : QString());
        listed.sort();
        QCOMPARE(listed, (QStringList{"file.txt"_s, "to_file"_s + link + " (link)"_s}));
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
        const quint32 first = replay.isEmpty() ? 20261124 : replay.toUInt(); // CI replays one run
        QLoggingCategory::setFilterRules("default.debug=false"_s); // the directory messages
        for (quint32 seed = first; seed != first + 300; ++seed) {
            const QString failure = checkRandomDirectory(seed, dated);
            QVERIFY2(failure.isEmpty(),
                     qPrintable("seed %1: %2 (replay: USERLOG_PROPERTY_SEED=%1)"_s.arg(seed).arg(
                         failure)));
        }
    }

private:
    // Makes entries in log/dir, or outside it with "..": "name" an empty file, "name=full" one of
    // 1 MiB and 1 byte, "name/" a directory. After "@": r read a day before the other files, a
    // number modified that many days before, l a link to a file instead of the file, b held so
    // that it cannot be deleted (false if that is not allowed).
    bool makeEntries(const QStringList& entries)
    {
        const QDateTime now = QDateTime::currentDateTime();
        const QString target = _tree->path("target"_s);
        makeFile(target);
        for (const QString& entry : entries) {
            const QString path = QDir::cleanPath(_tree->path("log/dir/"_s) + nameOf(entry));
            const QString flags = entry.section('@', 1);
            const bool made =
                entry.endsWith('/') ? QDir().mkpath(path)
                : flags.contains('l')
                    ? QDir().mkpath(QFileInfo(path).path()) && QFile::link(target, path)
                    : makeFile(path, entry.contains("=full"_s) ? maxLogFileSize + 1 : 0);
            if (flags.contains('r') || flags.toInt() > 0)
                setFileTimes(path, flags.contains('r') ? now.addDays(-1) : now,
                             now.addDays(-flags.toInt()));
            if (!made || (flags.contains('b') && !_held.emplace_back(holdFile(path))))
                return false;
        }
        return true;
    }

    std::optional<TestTree> _tree;
    std::vector<std::shared_ptr<void>> _held;
};

QTEST_GUILESS_MAIN(TestLogFiles)
#include "tst_logfiles.moc"
