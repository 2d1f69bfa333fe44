// File naming, resolution and retention of the log directories: the name
// helpers as a table, worked examples in a small directory notation, the
// native listing against the portable one, and randomised directories checked
// against a model of the rules.
//
// USERLOG_PROPERTY_SEED replays the randomised cases from that seed on.
#include "testtree.h"
#include "userlog/writer/logfiles.h"
#include "userlog/writer/userlogwriter.h"

#include <QtCore/QDir>
#include <QtCore/QProcess>
#include <QtCore/QRandomGenerator>
#include <QtTest/QtTest>

#include <algorithm>
#include <memory>
#include <tuple>

using namespace logfiles;

namespace {

const QString logDir = "../../log/dir"_s;

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

QString absoluteLogFile(const QString& dirPath, const QString& name)
{
    return QDir::cleanPath(QDir::currentPath() + '/' + dirPath) + QDir::separator() + name;
}

} // namespace

class TestLogFiles : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        _tree = std::make_unique<TestTree>();
        QVERIFY(_tree->isValid());
    }
    void cleanup();
    void names_data();
    void names();
    void resolution_data();
    void resolution();
    void datedTiesIgnoreListingOrder();
    void nativeListingMatchesPortable();
    void randomDirectories_data();
    void randomDirectories();

private:
    bool makeEntries(const QStringList& entries);

    std::unique_ptr<TestTree> _tree;
    QStringList _mounts;
};

void TestLogFiles::cleanup()
{
    for (const QString& target : qAsConst(_mounts))
        QProcess::execute("umount"_s, {target});
    _mounts.clear();
    _tree.reset();
}

// Makes entries in log/dir, or outside it with "..": "name" an empty file, "name=size" one of
// that size ("=full": 1 MiB and 1 byte), "name/" a directory. After "@": r read a day before
// the other files, a number modified that many days before, l a link to a file instead of the
// file, b a file bind-mounted over it, so that it cannot be deleted (false if not allowed).
bool TestLogFiles::makeEntries(const QStringList& entries)
{
    const QDateTime now = QDateTime::currentDateTime();
    const QString target = _tree->path("target"_s);
    makeFile(target);
    for (const QString& entry : entries) {
        const QString path = QDir::cleanPath(_tree->path("log/dir/"_s) + nameOf(entry));
        const QString flags = entry.section('@', 1);
        const QString size = entry.section('=', 1).section('@', 0, 0);
        if (entry.endsWith('/')) {
            QDir().mkpath(path);
            continue;
        }
        QDir().mkpath(QFileInfo(path).path());
        if (flags.contains('l'))
            QFile::link(target, path);
        else
            makeFile(path, size == "full"_s ? maxLogFileSize + 1 : size.toLongLong());
        if (flags.contains('b')) {
            if (QProcess::execute("mount"_s, {"--bind"_s, target, path}) != 0)
                return false;
            _mounts << path;
        }
        if (flags.contains('r') || flags.toInt() > 0)
            setFileTimes(path, flags.contains('r') ? now.addDays(-1) : now,
                         now.addDays(-flags.toInt()));
    }
    return true;
}

void TestLogFiles::names_data()
{
    // The row name is the call: "index <file name>", "name <pattern>" for index 3, "dated <file
    // name>" for prefix "print" ("no match", "no index" or the index read), "datedName <prefix>"
    // for index 4 on 2025-06-02.
    QTest::addColumn<QString>("expected");
    addRow("index user_log_file_12.old.txt", "12");
    addRow("index user_log_file_007.txt", "7");
    addRow("index 42.txt", "42");
    addRow("index log_5", "5");
    addRow("index bcc_log_file_x.txt", "0");
    addRow("index u_99999999999.txt", "0");
    addRow("name u_%1.txt", "u_3.txt");
    addRow("name off", "off");
    addRow("dated print_12_2025-05-26.txt", "12");
    addRow("dated print_007_2025-05-26.txt", "7");
    addRow("dated PRINT_3_2025-05-26.TXT", "3");
    addRow("dated print_-3_2025-05-26.txt", "-3");
    addRow("dated print_off_0_2025-05-26.txt", "no index");
    addRow("dated print__2025-05-26.txt", "no index");
    addRow("dated print_3_4_2025.txt", "no index");
    addRow("dated print_3.txt", "no match");
    addRow("dated print_3_2025-05-26.log", "no match");
    addRow("dated xprint_3_2025-05-26.txt", "no match");
    addRow("datedName print", "print_4_2025-06-02.txt");
}

void TestLogFiles::names()
{
    QFETCH(QString, expected);
    const QString call = QString::fromUtf8(QTest::currentDataTag());
    const QString kind = call.section(' ', 0, 0);
    const QString arg = call.section(' ', 1);
    int index = 0;
    const QString actual = kind == "index"_s       ? QString::number(indexOfLogFile(arg))
                           : kind == "name"_s      ? indexedFileName(arg, 3)
                           : kind == "datedName"_s ? datedFileName(arg, 4, QDate(2025, 6, 2))
                           : !matchesDatedPattern(arg, "print"_s)   ? "no match"_s
                           : datedFileIndex(arg, "print"_s, &index) ? QString::number(index)
                                                                    : "no index"_s;
    QCOMPARE(actual, expected);
}

void TestLogFiles::resolution_data()
{
    // call on ../../log/dir: "indexed <pattern>" (limit 100), "dated <prefix>" (limit 500),
    // "delete" (the writer's slot deleteOldestFiles by name, limit 500) or "delete here" (the
    // same with an empty path, for the working directory); entries as makeEntries() makes them;
    // current: the file chosen, "-" when no directory is there after; deleted: the files that
    // must be gone, all others must be left.
    for (const char* column : {"call", "entries", "current", "deleted"})
        QTest::addColumn<QString>(column);
    addRow("indexed: directories made", "indexed u_%1.txt", "", "u_0.txt", "");
    addRow("indexed: directory cannot be made", "indexed u_%1.txt", "../../log", "-", "");
    addRow("indexed: a regular file at its path", "indexed u_%1.txt", "../dir", "u_0.txt", "");
    addRow("indexed: 1 MiB stays", "indexed u_%1.txt", "u_2.txt u_3.txt=1048576", "u_3.txt", "");
    addRow("indexed: past every full file", "indexed u_%1_a.txt", // each name reads as index 0
           "u_0_a.txt=full u_1_a.txt=full", "u_2_a.txt", "");
    addRow("indexed: numbers, leading zeros", "indexed u_%1.txt", "u_9.txt u_010.txt", "u_10.txt",
           "");
    addRow("indexed: 100, a stray", "indexed u_%1.txt", "u_[1-99].txt x", "u_99.txt", "x");
    addRow("indexed: 130 keep 99", "indexed u_%1.txt", "u_[0-129].txt", "u_129.txt",
           "u_[0-30].txt");
    addRow("indexed: hidden, directory", "indexed u_%1.txt", "u_[1-99].txt .u_0 u_0/", "u_99.txt",
           "");
    // Equal indexes go oldest-modified first, whatever the listing order: the two rows
    // swap the ages, so no one listing order passes both.
    addRow("indexed: ties by age", "indexed u_%1.txt", "u_[1-98].txt a.txt@1 m.txt@3 z.txt@2",
           "u_98.txt", "m.txt z.txt");
    addRow("indexed: ties by age, swapped", "indexed u_%1.txt",
           "u_[1-98].txt a.txt@3 m.txt@1 z.txt@2", "u_98.txt", "a.txt z.txt");
    addRow("indexed: undeletable", "indexed u_%1.txt", "u_[1-99].txt u_0.txt@b", "u_99.txt", "");
    addRow("indexed: no %1, over 1 MiB", "indexed off", "off=full", "off", "");
    addRow("dated: directories made", "dated p", "", "p_0_<today>.txt", "");
    addRow("dated: directory cannot be made", "dated p", "../../log", "-", "");
    addRow("dated: number, dates, 1 MiB", "dated p",
           "p_9_2025-05-10.txt p_10_2025-05-20.txt=1048576", "p_10_2025-05-20.txt", "");
    addRow("dated: full", "dated p", "p_3_2025-05-26.txt=full", "p_4_<today>.txt", "");
    addRow("dated: no candidates", "dated p", "p_off_5_x.txt p_-3_x.txt p_8_x.txt@l p_9_x.txt/",
           "p_0_<today>.txt", "");
    // A custom name may hold wildcards; an invalid pattern matches nothing.
    addRow("dated: wildcard prefix", "dated p*", "pa_3_x.txt", "pa_3_x.txt", "");
    addRow("dated: invalid wildcard prefix", "dated p[", "p[_3_x.txt", "p[_0_<today>.txt", "");
    addRow("dated: offline prefix", "dated p_off", "p_7_x.txt p_off_2_x.txt", "p_off_2_x.txt", "");
    addRow("dated: 501 .txt", "dated p", "f[0-498].txt p_1_x.txt p_2_x.txt@r", "p_1_x.txt",
           "p_2_x.txt");
    addRow("delete: 500 .txt", "delete", "f[1-499].txt a.txt@r", "", "");
    addRow("delete: 501, ties by name", "delete", "f[1-499].txt a.txt@r B.txt@r", "", "B.txt");
    addRow("delete: 502, one a call", "delete", "f[1-501].txt REPORT.TXT@r", "", "REPORT.TXT");
    addRow("delete: .log not counted", "delete", "f[1-500].txt a.log", "", "");
    addRow("delete: undeletable", "delete", "f[1-500].txt f0.txt@rb", "", "");
    addRow("delete: missing directory", "delete", "", "-", ""); // and not made
    addRow("delete here: working directory", "delete here",
           "../../app/bin/f[1-501].txt "
           "../../app/bin/old.txt@r",
           "", "../../app/bin/old.txt");
}

void TestLogFiles::resolution()
{
    QFETCH(QString, call);
    QFETCH(QString, entries);
    QFETCH(QString, current);
    QFETCH(QString, deleted);
    if (!makeEntries(expand(entries)))
        QSKIP("mount --bind failed; it needs root");
    const bool here = call == "delete here"_s;
    const QString dir = _tree->path(here ? "app/bin"_s : "log/dir"_s);
    QStringList kept;
    for (const QString& entry : expand(entries)) {
        const QFileInfo file(QDir::cleanPath(_tree->path("log/dir/"_s) + nameOf(entry)));
        if (!entry.endsWith('/') && file.path() == dir && !expand(deleted).contains(nameOf(entry)))
            kept << file.fileName();
    }
    kept.sort();
    const QString kind = call.section(' ', 0, 0);
    const QString arg = call.section(' ', 1);
    const bool made = current != "-"_s;
    std::unique_ptr<UserLogWriter> writer(kind == "delete"_s ? new UserLogWriter : nullptr);
    MessageCapture capture;
    QString path = "unchanged"_s;
    QString expected = path;
    if (writer) {
        QVERIFY(QMetaObject::invokeMethod(writer.get(), "deleteOldestFiles",
                                          Q_ARG(QString, here ? QString() : logDir),
                                          Q_ARG(int, 500)));
    } else if (kind == "indexed"_s) {
        QCOMPARE(resolveIndexedLogPath(arg, logDir, path, 100), made);
        if (made) // absolute, with the native separator before the name
            expected = absoluteLogFile(logDir, current);
    } else {
        QCOMPARE(resolveDatedLogPath(arg, logDir, path, 500), made);
        if (made)
            expected = logDir + '/' + current.replace("<today>"_s, today());
    }
    QCOMPARE(path, expected);
    QCOMPARE(capture.messages(), !made && !writer ? QStringList{"make log dir failed!"_s}
                                 : kind == "indexed"_s && entries.isEmpty()
                                     ? QStringList{"make log dir succeded!"_s}
                                     : QStringList());
    QCOMPARE(QDir(dir).entryList(QDir::Files | QDir::Hidden, QDir::Name), kept);
    QCOMPARE(QFileInfo::exists(dir), made);
}

// Names equal but for case can coexist; the listing's order must not decide between them.
void TestLogFiles::datedTiesIgnoreListingOrder()
{
    const QStringList names{"p_3_b.txt"_s, "P_3_a.txt"_s, "p_3_A.txt"_s, "p_3_a.txt"_s,
                            "p_2_0.txt"_s};
    for (int rotation = 0; rotation < names.size(); ++rotation) {
        QVector<ListedFile> files;
        for (int i = 0; i < names.size(); ++i)
            files.append({names.at((i + rotation) % names.size()), false});
        for (bool reversed : {false, true}) {
            if (reversed)
                std::reverse(files.begin(), files.end());
            QString latest;
            QCOMPARE(latestDatedFile(files, "p"_s, QString(), &latest), 3);
            QCOMPARE(latest, "P_3_a.txt"_s);
        }
    }
}

void TestLogFiles::nativeListingMatchesPortable()
{
    const QString dir = _tree->path("log/mixed"_s);
    for (const QString& name : {"user_log_file_1.txt"_s, ".hidden"_s, "n\u00e4me_2.TXT"_s})
        QVERIFY(makeFile(dir + '/' + name));
    QVERIFY(QDir(dir).mkdir("subdir"_s));
    const auto describe = [](const QVector<ListedFile>& files) {
        QStringList names;
        for (const ListedFile& file : files)
            names << file.name + (file.isSymLink ? " (link)"_s : QString());
        names.sort();
        return names;
    };
    QStringList expected{"n\u00e4me_2.TXT"_s, "user_log_file_1.txt"_s};
#ifdef Q_OS_UNIX // links to files count, links to directories and dangling ones do not
    QVERIFY(QFile::link(dir + "/user_log_file_1.txt"_s, dir + "/file_link_3.txt"_s));
    QVERIFY(QFile::link(dir + "/subdir"_s, dir + "/dir_link"_s));
    QVERIFY(QFile::link(dir + "/gone"_s, dir + "/dangling"_s));
    expected.prepend("file_link_3.txt (link)"_s);
#endif
    QCOMPARE(describe(listFilesPortable(dir)), expected);
    QCOMPARE(describe(listFiles(dir)), expected);
    QCOMPARE(describe(listFiles("../../log/mixed"_s)), expected);
    QVERIFY(listFiles(dir + "/user_log_file_1.txt"_s).isEmpty());
    QVERIFY(listFiles(dir + "/missing"_s).isEmpty());
}

namespace {

struct ModelFile
{
    QString name;
    qint64 size;
    QDateTime time; // modified for indexed files, last read for dated ones
};

// Names that follow the pattern or the prefix, and strays of every kind: leading zeros, other
// extensions and cases, negative, huge or missing indexes, hidden files. Sizes mostly right at
// the full-file threshold. Every file lands in dir and, unless hidden, in the model.
QVector<ModelFile> randomFiles(QRandomGenerator& rng, const QString& dir, const QString& base,
                               bool dated, int count)
{
    QVector<ModelFile> files;
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
                                 ".hidden_"_s + i + ".txt"_s};
        const QString name = forms[rng.bounded(2) == 0 ? 0 : rng.bounded(10)];
        const qint64 offsets[] = {-1, 0, 1, 4096};
        const ModelFile file{name,
                             maxLogFileSize + offsets[rng.bounded(4)] - rng.bounded(2) * 300000,
                             QDateTime::currentDateTime().addSecs(-rng.bounded(4) * 3600)};
        const QString path = dir + '/' + name;
        if (!QFileInfo::exists(path) && makeFile(path, file.size) &&
            setFileTimes(path, file.time, dated ? QDateTime::currentDateTime() : file.time) &&
            !name.startsWith('.'))
            files.append(file);
    }
    return files;
}

// The index rule read with QString::toInt: what follows the last "_" before the first ".".
int modelIndex(const QString& name)
{
    bool ok = false;
    const int index = name.section('.', 0, 0).section('_', -1).toInt(&ok);
    return ok ? index : 0;
}

// Lowest index, then oldest, then name deleted while the limit is reached; the highest
// index current, full files skipped.
QString indexedModel(QVector<ModelFile>& files, const QString& pattern, int limit)
{
    std::sort(files.begin(), files.end(), [](const ModelFile& a, const ModelFile& b) {
        return std::make_tuple(modelIndex(a.name), a.time, a.name) <
               std::make_tuple(modelIndex(b.name), b.time, b.name);
    });
    if (files.size() >= limit)
        files.remove(0, std::min(files.size() - limit + 1, files.size() - 1));
    qint64 index = files.isEmpty() ? 0 : modelIndex(files.last().name);
    const auto full = [&](qint64 i) {
        return std::any_of(files.begin(), files.end(), [&](const ModelFile& f) {
            return f.name == indexedFileName(pattern, i) && f.size > maxLogFileSize;
        });
    };
    while (pattern.contains("%1"_s) && full(index))
        ++index;
    return indexedFileName(pattern, index);
}

// The least recently read ".txt" file deleted past the limit; the highest valid index of a
// candidate current (ties by name, case folded first), the next one started when it is full.
QString datedModel(QVector<ModelFile>& files, const QString& prefix, int limit)
{
    const auto isTxt = [](const ModelFile& f) {
        return f.name.endsWith(".txt"_s, Qt::CaseInsensitive);
    };
    if (std::count_if(files.begin(), files.end(), isTxt) > limit)
        files.erase(std::min_element(files.begin(), files.end(),
                                     [&](const ModelFile& a, const ModelFile& b) {
                                         return std::make_tuple(!isTxt(a), a.time, a.name) <
                                                std::make_tuple(!isTxt(b), b.time, b.name);
                                     }));
    const QRegularExpression candidate(
        QRegularExpression::wildcardToRegularExpression(prefix + "_*_*.txt"_s),
        QRegularExpression::CaseInsensitiveOption);
    const ModelFile* latest = nullptr;
    int highest = -1;
    for (const ModelFile& file : files) {
        bool ok = false;
        const int start = prefix.size() + 1;
        const int index = file.name.mid(start, file.name.lastIndexOf('_') - start).toInt(&ok);
        if (ok && index >= std::max(highest, 0) && candidate.match(file.name).hasMatch() &&
            (index > highest || std::make_pair(file.name.toLower(), file.name) <
                                    std::make_pair(latest->name.toLower(), latest->name))) {
            highest = index;
            latest = &file;
        }
    }
    if (latest != nullptr && latest->size <= maxLogFileSize)
        return latest->name;
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
    const int limits[] = {2, 3, 5, 12};
    const int limit = limits[rng.bounded(4)];
    const QString dir = "../../log/case"_s + QString::number(seed);
    QVector<ModelFile> files = randomFiles(rng, dir, base, dated, rng.bounded(limit + 4));
    const QString name = dated ? datedModel(files, base, limit) : indexedModel(files, base, limit);
    QStringList kept;
    for (const ModelFile& file : files)
        kept << file.name;
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

void TestLogFiles::randomDirectories_data()
{
    QTest::addColumn<bool>("dated");
    QTest::newRow("indexed files") << false;
    QTest::newRow("dated files") << true;
}

void TestLogFiles::randomDirectories()
{
    QFETCH(bool, dated);
    bool ok = false;
    quint32 first = qEnvironmentVariable("USERLOG_PROPERTY_SEED").toUInt(&ok);
    if (!ok)
        first = QRandomGenerator::system()->generate();
    QLoggingCategory::setFilterRules("default.debug=false"_s); // the directory messages
    for (quint32 seed = first; seed != first + 300; ++seed) {
        const QString failure = checkRandomDirectory(seed, dated);
        QVERIFY2(
            failure.isEmpty(),
            qPrintable("seed %1: %2 (replay: USERLOG_PROPERTY_SEED=%1)"_s.arg(seed).arg(failure)));
    }
}

QTEST_GUILESS_MAIN(TestLogFiles)
#include "tst_logfiles.moc"
