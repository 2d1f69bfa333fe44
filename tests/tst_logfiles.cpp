// File resolution and retention of the log directories: randomised directories
// checked against a model of the rules and against QDir's listing, and files that
// cannot be deleted, which no random directory holds.
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
#include <tuple>
#include <vector>

#ifndef Q_OS_WIN
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>
#endif

using namespace logfiles;

namespace {

constexpr qint64 oneMiB = 1048576;

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

// What a random directory holds. The kinds past Link are Unix entries QFile cannot
// make: a name of raw bytes (each character of the name one byte), a FIFO, links to
// /dev/null and to a FIFO.
struct Entry
{
    enum Kind
    {
        File,
        Directory,
        Link, // to a file, to nothing or to a directory, all outside the directory
        RawName,
        LinkToDevNull,
        Fifo,
        LinkToFifo,
    };
    QString name;
    Kind kind = File;
};

#ifndef Q_OS_WIN
bool makeUnixEntry(const QString& dir, const Entry& entry)
{
    const QByteArray path = QFile::encodeName(dir) + '/' + entry.name.toLatin1();
    const QByteArray fifo = QFile::encodeName(dir) + "/../fifo";
    switch (entry.kind) {
    case Entry::RawName:
        return makeRawFile(path);
    case Entry::LinkToDevNull:
        return makeRawLink("/dev/null", path);
    case Entry::Fifo:
        return ::mkfifo(path.constData(), 0644) == 0;
    case Entry::LinkToFifo:
        return (::mkfifo(fifo.constData(), 0644) == 0 || errno == EEXIST) &&
               makeRawLink(fifo, path);
    default:
        return false;
    }
}
#endif

// Names that follow the pattern or the prefix, and strays of every kind: leading zeros,
// other extensions and cases, negative, huge, missing or empty parts, hidden files, links
// named as log files, subdirectories; on Unix also names that do not decode (the first
// byte among them), FIFOs and links to special files. Sizes mostly right at the full-file
// threshold; times in whole hours, so that some are equal. No files: no directory.
void makeRandomFiles(QRandomGenerator& rng, const QString& dir, const QString& base, bool dated,
                     int count)
{
    const QDateTime now = QDateTime::currentDateTime();
#ifdef Q_OS_WIN
    const QString linkSuffix = ".lnk"_s; // QFile::link makes shell shortcuts there
#else
    const QString linkSuffix;
#endif
    if (count > 0)
        QDir().mkpath(dir);
    for (; count > 0; --count) {
        const QString i = QString::number(rng.bounded(count + 3));
        const QString tail = "_2025-05-"_s + QString::number(10 + rng.bounded(20)) + ".txt"_s;
        const QString named = dated ? base + '_' + i + tail : QString(base).replace("%1"_s, i);
        QVector<Entry> forms{
            {named},
            {dated ? base.toUpper() + '_' + i + tail.toUpper()
                   : QString(base).replace("%1"_s, "00"_s + i)},
            {base + "_00"_s + i + tail},
            {base + "_off_"_s + i + tail},
            {base + "_-"_s + i + tail},
            {base + "_99999999999"_s + tail},
            {base + '_' + i + ".txt"_s},
            {base + '_' + i + "_.txt"_s},
            {"n\u00f6tes_"_s + i + ".log"_s},
            {"\u00e9t\u00e9_"_s + i + ".txt"_s},
            {"readme.txt"_s},
            {".hidden_"_s + i + ".txt"_s},
            {"n\u00e4me_"_s + i, Entry::Directory},
            {named + linkSuffix, Entry::Link},
        };
#ifndef Q_OS_WIN
        // Bytes UTF-8 cannot read: Latin-1, a lone continuation, an overlong form, an
        // encoded surrogate, past U+10FFFF, a sequence cut short; and some it can.
        const QString bad[] = {"\u00ff"_s, "\u0080"_s, "\u00c0\u00af"_s, "\u00ed\u00a0\u0080"_s,
                               "\u00f4\u0090\u0080\u0080"_s};
        const QString good[] = {"\u00ef\u00bb\u00bf"_s /* a byte order mark */,
                                "\u00f0\u009f\u0098\u0080"_s, "\u00ef\u00bf\u00be"_s};
        forms += {{bad[rng.bounded(5)] + named, Entry::RawName},
                  {"x"_s + bad[rng.bounded(5)] + '_' + i + tail, Entry::RawName},
                  {named + "\u00e2\u0082"_s, Entry::RawName},
                  {good[rng.bounded(3)] + named, Entry::RawName},
                  {named, Entry::LinkToDevNull},
                  {named, Entry::Fifo},
                  {named, Entry::LinkToFifo}};
#endif
        const Entry& entry = forms.at(rng.bounded(2) == 0 ? 0 : rng.bounded(forms.size()));
        const QString path = dir + '/' + entry.name;
        if (QFileInfo(path).isSymLink() || QFileInfo::exists(path))
            continue;
        if (entry.kind == Entry::File) {
            const qint64 sizes[] = {oneMiB - 1, oneMiB, oneMiB + 1, 4096};
            const QDateTime time = now.addSecs(-rng.bounded(4) * 3600);
            if (makeFile(path, sizes[rng.bounded(4)]))
                setFileTimes(path, time, time);
        } else if (entry.kind == Entry::Directory) {
            QDir().mkpath(path);
        } else if (entry.kind == Entry::Link) {
            // Targets outside the directory, so that the retention cannot break a link.
            const QString targets[] = {"/../target.txt"_s, "/../gone.txt"_s, "/.."_s};
            makeFile(dir + targets[0]);
            QFile::link(QFileInfo(dir + targets[rng.bounded(3)]).absoluteFilePath(), path);
        } else {
#ifndef Q_OS_WIN
            makeUnixEntry(dir, entry);
#endif
        }
    }
}

// The index of any file in an indexed log directory, by the rule's own words.
int ruleIndex(const QString& name)
{
    return QFileInfo(name).baseName().section('_', -1).toInt();
}

// The indexed logs, read off the directory before the call: the lowest indexes go while
// limit files or more are there, among equal indexes the oldest-modified first, then the
// first by name. Returns the highest index; adds the deleted names to gone.
int indexedModel(const QString& dir, int limit, QStringList* gone)
{
    struct File
    {
        int index;
        QDateTime modified;
        QString name;
        bool operator<(const File& o) const
        {
            return std::tie(index, modified, name) < std::tie(o.index, o.modified, o.name);
        }
    };
    std::vector<File> files;
    for (const QString& name : QDir(dir).entryList(QDir::Files))
        files.push_back({ruleIndex(name), QFileInfo(dir + '/' + name).lastModified(), name});
    std::sort(files.begin(), files.end());
    for (int i = 0; int(files.size()) >= limit && i <= int(files.size()) - limit; ++i)
        *gone << files.at(i).name;
    return files.empty() ? 0 : std::max_element(files.begin(), files.end())->index;
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
// starts when it is full, or index 0 when none counts; "DATE" stands for the day. Links
// are no candidates.
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
    const QStringList native = listedNames(listFiles(dir)), qdir = qdirNames(dir),
                      portable = listedNames(listFilesPortable(dir));
    if (native != qdir || portable != qdir)
        return "listings differ: "_s + native.join(' ') + " / QDir: "_s + qdir.join(' ') +
               " / portable: "_s + portable.join(' ');
    const QStringList before = fileNames(dir);
    const QDate day = QDate::currentDate();
    QStringList expectedGone, gone;
    QString path, expected;
    bool resolved = false;
    if (dated) {
        expected = dir + '/' + datedModel(dir, base, limit, &expectedGone);
        resolved = resolveDatedLogPath(base, dir, path, limit);
    } else {
        const int highest = indexedModel(dir, limit, &expectedGone);
        resolved = resolveIndexedLogPath(base, dir, path, limit);
        expected = absoluteLogFile(dir, indexedRollover(dir, base, highest));
    }
    const QStringList after = fileNames(dir);
    for (const QString& name : before)
        if (!after.contains(name))
            gone << name;
    gone.sort();
    expectedGone.sort();
    const bool made = QFileInfo(dir).isDir();
    removeTree(dir);
    if (!made || !resolved)
        return made ? "no path resolved"_s : "the directory was not made"_s;
    for (const QDate& d : {day, QDate::currentDate()}) // a run across midnight may use either
        if (path == QString(expected).replace("DATE"_s, d.toString("yyyy-MM-dd"_s)))
            return gone == expectedGone ? QString() : "deleted "_s + gone.join(' ');
    return "chose "_s + path + ", expected "_s + expected;
}

} // namespace

class TestLogFiles : public QObject
{
    Q_OBJECT

private slots:
    void init() { QVERIFY(_tree.emplace().isValid()); }

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
        QLoggingCategory::setFilterRules(QString());
    }

    // A file the retention cannot delete ends it for the call: nothing else goes, and
    // the highest index stays current; let go, it goes at the next call. The writer's
    // retention of a missing folder makes none and says nothing.
    void undeletableFile()
    {
        UserLogWriter writer; // its banner's messages before the capture
        takeMessages();
        writer.deleteOldestFiles("../../log/none"_s, 0);
        QVERIFY(!QFileInfo::exists("../../log/none"_s));
        QCOMPARE(takeMessages(), QStringList());
#ifndef Q_OS_WIN
        if (geteuid() != 0)
            QSKIP("holding a file against deletion takes a bind mount here, which needs root");
#endif
        const QString dir = _tree->path("log/dir/"_s);
        const QStringList names{"u_0.txt"_s, "u_1.txt"_s, "u_2.txt"_s, "u_3.txt"_s};
        for (const QString& name : names)
            QVERIFY(makeFile(dir + name));
        const QDateTime longAgo = QDateTime::currentDateTime().addDays(-1);
        QVERIFY(setFileTimes(dir + names.first(), longAgo, longAgo));
        std::shared_ptr<void> held = holdFile(dir + names.first());
        QVERIFY(held);
        QString path;
        QVERIFY(resolveIndexedLogPath("u_%1.txt"_s, "../../log/dir"_s, path, 3));
        QCOMPARE(path, absoluteLogFile("../../log/dir"_s, "u_3.txt"_s));
        writer.deleteOldestFiles("../../log/dir"_s, 3);
        QCOMPARE(fileNames(dir), names);
        held.reset(); // let go, it is the one that goes
        writer.deleteOldestFiles("../../log/dir"_s, 3);
        QCOMPARE(fileNames(dir), names.mid(1));
    }

private:
    std::optional<TestTree> _tree;
};

QTEST_GUILESS_MAIN(TestLogFiles)
#include "tst_logfiles.moc"
