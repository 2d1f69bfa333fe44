// Randomised checks of the two log file resolvers: seeded directory populations
// (names that match the patterns and names that do not, leading zeros, sizes
// around the full-file threshold, counts around the limits, files that cannot
// be deleted) against invariants that follow from the rules of each resolver.
//
// USERLOG_PROPERTY_ITERATIONS sets the cases per resolver (default 300);
// USERLOG_PROPERTY_SEED sets the first case's seed (default: a random one).
// A failing case prints its seed and how to replay it alone.
#include "testtree.h"
#include "tst_reliability_mount.h"
#include "userlog/writer/logfiles.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QLoggingCategory>
#include <QtCore/QMap>
#include <QtCore/QRandomGenerator>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>
#include <QtTest/QtTest>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr qint64 fullSize = logfiles::maxLogFileSize;
const QString indexMarker = QStringLiteral("%1");

// Immutable files cannot be deleted, not even by root: the way to make a
// retention step fail.
bool setImmutable(const QString& path, bool immutable)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK);
    if (fd < 0)
        return false;
    int flags = 0;
    bool ok = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    if (ok) {
        flags = immutable ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
        ok = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    }
    ::close(fd);
    return ok;
}

// One generated directory, removed with everything in it when the case ends.
class CaseDir
{
public:
    explicit CaseDir(const QString& relativePath)
        : relative(relativePath),
          absolute(QDir::cleanPath(QDir::currentPath() + QLatin1Char('/') + relativePath))
    {
        QDir().mkpath(absolute);
        QDir().mkpath(absolute + QStringLiteral(".targets"));
    }
    ~CaseDir()
    {
        for (const QString& path : qAsConst(_locked))
            setImmutable(path, false);
        QDir(absolute).removeRecursively();
        QDir(absolute + QStringLiteral(".targets")).removeRecursively();
    }
    // A sparse file, or a symbolic link to one kept outside the directory; one
    // open per file, since file creation dominates the run time.
    bool add(const QString& name, qint64 size, bool asLink, const QDateTime& lastRead)
    {
        const QString target = asLink ? absolute + QStringLiteral(".targets/") + name : path(name);
        const int fd = ::open(QFile::encodeName(target).constData(), O_WRONLY | O_CREAT, 0644);
        if (fd < 0)
            return false;
        const qint64 ms = lastRead.toMSecsSinceEpoch();
        const timespec times[2] = {{time_t(ms / 1000), long(ms % 1000) * 1000000},
                                   {time_t(ms / 1000), long(ms % 1000) * 1000000}};
        const bool made = ::ftruncate(fd, off_t(size)) == 0 && ::futimens(fd, times) == 0;
        ::close(fd);
        return made && (!asLink || QFile::link(target, path(name)));
    }
    bool lock(const QString& name)
    {
        _locked.append(path(name));
        return setImmutable(path(name), true);
    }
    QString path(const QString& name) const { return absolute + QLatin1Char('/') + name; }
    // Every entry, hidden ones and subdirectories included.
    QStringList entries() const
    {
        return QDir(absolute).entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                        QDir::NoDotAndDotDot);
    }
    // The names a resolver counts: non-hidden files and links to files.
    QStringList listedFiles() const
    {
        QStringList listed;
        for (const QString& name : entries()) {
            if (!name.startsWith(QLatin1Char('.')) && QFileInfo(path(name)).isFile())
                listed.append(name);
        }
        return listed;
    }

    const QString relative;
    const QString absolute;

private:
    QStringList _locked;
};

// Ends the process with the running case's seed when a case takes far too
// long: a resolver that never returns would otherwise hang the run silently.
char hangNote[80];
void reportHang(int)
{
    (void)!::write(STDERR_FILENO, hangNote, std::strlen(hangNote));
    ::_exit(3);
}

quint32 envNumber(const char* name, quint32 fallback)
{
    bool ok = false;
    const quint32 value = qEnvironmentVariable(name).toUInt(&ok);
    return ok ? value : fallback;
}

// Now and then one of the names, never a link (a link's target would be locked
// rather than the link), to be made impossible to delete.
QString pickLockable(QRandomGenerator& rng, const CaseDir& dir, const QStringList& names)
{
    if (names.isEmpty() || rng.bounded(8) != 0)
        return QString();
    const QString name = names.at(rng.bounded(names.size()));
    return QFileInfo(dir.path(name)).isSymLink() ? QString() : name;
}

// Mostly sizes right at the full-file threshold, where a rollover starts.
qint64 pickSize(QRandomGenerator& rng)
{
    static const qint64 offsets[] = {-1, 0, 0, 1, 1, 4096};
    return rng.bounded(3) == 0 ? rng.bounded(300000) : fullSize + offsets[rng.bounded(6)];
}

// Index of a listed file by the indexed rule: the text after the last "_" of
// the part before the first ".", read as an integer; 0 when it is not one.
int indexOf(const QString& name)
{
    const QString base = name.left(name.indexOf(QLatin1Char('.')));
    bool ok = false;
    const int index = base.mid(base.lastIndexOf(QLatin1Char('_')) + 1).toInt(&ok);
    return ok ? index : 0;
}

QString withIndex(const QString& pattern, const QString& index)
{
    return QString(pattern).replace(indexMarker, index);
}

// Half the names follow the pattern; the others are strays that read as an
// index all the same, and a hidden file that does not count.
QString indexedCaseName(QRandomGenerator& rng, const QString& pattern, int range)
{
    const QString i = QString::number(rng.bounded(range));
    const QString forms[] = {QStringLiteral("readme.txt"),
                             QStringLiteral("notes_") + i + QStringLiteral(".log"),
                             withIndex(pattern, i.rightJustified(3, QLatin1Char('0'))),
                             withIndex(pattern, i) + QStringLiteral(".old"),
                             withIndex(pattern, QLatin1Char('-') + i),
                             QStringLiteral("user_log_file_2147483647.txt"),
                             QStringLiteral("user_print_file_off_") + i +
                                 QStringLiteral("_2025-05-26.txt"),
                             QStringLiteral(".hidden_") + i + QStringLiteral(".txt")};
    return rng.bounded(2) == 0 ? withIndex(pattern, i) : forms[rng.bounded(8)];
}

// Reads the index out of a path the indexed resolver built from pattern.
bool chosenIndex(const QString& fileName, const QString& pattern, qint64* index)
{
    const int marker = pattern.indexOf(indexMarker);
    const QString head = pattern.left(marker);
    const QString tail = pattern.mid(marker + indexMarker.size());
    if (!fileName.startsWith(head) || !fileName.endsWith(tail) ||
        fileName.size() <= head.size() + tail.size())
        return false;
    const QString digits = fileName.mid(head.size(), fileName.size() - head.size() - tail.size());
    bool ok = false;
    *index = digits.toLongLong(&ok);
    return ok && QString::number(*index) == digits;
}

// Checks one indexed resolution; returns what went wrong, or an empty text.
QString checkIndexed(QRandomGenerator& rng, QMap<QString, int>& stats)
{
    static const QString patterns[] = {QStringLiteral("user_log_file_%1.txt"),
                                       QStringLiteral("bcc_log_file_%1.txt"),
                                       QStringLiteral("user_print_file_off")};
    static const int limits[] = {2, 2, 3, 3, 5, 5, 10, 10, 2, 3, 5, 10, 100};
    const QString pattern = patterns[rng.bounded(3)];
    const int limit = limits[rng.bounded(int(sizeof(limits) / sizeof(limits[0])))];
    const int count = std::max(0, limit - 2 + rng.bounded(6));
    CaseDir dir(QStringLiteral("../../log/c%1").arg(rng.generate()));
    if (rng.bounded(20) == 0) {
        QDir().rmdir(dir.absolute);
    } else {
        QDir().mkpath(dir.absolute + QStringLiteral("/sub_%1").arg(count + 7));
        for (int n = 0; n < count; ++n) {
            const QString name = indexedCaseName(rng, pattern, count + 3);
            if (QFileInfo::exists(dir.path(name)))
                continue;
            if (!dir.add(name, pickSize(rng), rng.bounded(15) == 0, QDateTime::currentDateTime()))
                return QStringLiteral("cannot create ") + name;
        }
    }
    const QStringList before = dir.entries();
    const QStringList listed = dir.listedFiles();
    const QString locked = pickLockable(rng, dir, listed);
    if (!locked.isEmpty()) {
        if (!dir.lock(locked))
            return QStringLiteral("cannot make %1 immutable").arg(locked);
    }

    QString filePath;
    if (!logfiles::resolveIndexedLogPath(pattern, dir.relative, filePath, limit))
        return QStringLiteral("resolution failed");

    const QStringList after = dir.entries();
    QStringList deleted;
    for (const QString& name : before) {
        if (!after.contains(name))
            deleted.append(name);
    }
    const QStringList remaining = dir.listedFiles();
    if (after.size() + deleted.size() != before.size())
        return QStringLiteral("entries appeared: ") + after.join(QLatin1Char(' '));
    for (const QString& name : deleted) {
        if (!listed.contains(name))
            return QStringLiteral("deleted a file outside the listing: ") + name;
        for (const QString& kept : remaining) {
            if (indexOf(name) > indexOf(kept))
                return QStringLiteral("deleted %1 before %2").arg(name, kept);
        }
    }
    stats[QStringLiteral("with retention")] += deleted.isEmpty() ? 0 : 1;
    const int expectedCount = listed.size() < limit ? listed.size() : limit - 1;
    if (remaining.size() != expectedCount) {
        // Only a failed deletion stops the retention early, and it stops at that file.
        if (locked.isEmpty() || !remaining.contains(locked) || remaining.size() < expectedCount)
            return QStringLiteral("%1 files remain, %2 expected")
                .arg(remaining.size())
                .arg(expectedCount);
        for (const QString& kept : remaining) {
            if (indexOf(kept) < indexOf(locked))
                return QStringLiteral("retention went past the failed deletion of ") + locked;
        }
        ++stats[QStringLiteral("with a failed deletion")];
    }

    if (!QFileInfo(filePath).isAbsolute() ||
        QFileInfo(filePath).absolutePath() != QFileInfo(dir.absolute).absoluteFilePath())
        return QStringLiteral("path outside the directory: ") + filePath;
    const QString chosen = QFileInfo(filePath).fileName();
    if (!pattern.contains(indexMarker))
        return chosen == pattern ? QString() : QStringLiteral("chose ") + chosen;

    qint64 highest = 0;
    if (!remaining.isEmpty()) {
        highest = indexOf(remaining.first());
        for (const QString& name : remaining)
            highest = std::max<qint64>(highest, indexOf(name));
    }
    qint64 index = 0;
    // Each index skipped names a full file, so no more are skipped than there are files.
    if (!chosenIndex(chosen, pattern, &index) || index < highest || index - highest > listed.size())
        return QStringLiteral("chose %1 with %2 the highest index").arg(chosen).arg(highest);
    for (qint64 skipped = highest; skipped < index; ++skipped) {
        const QFileInfo full(dir.path(withIndex(pattern, QString::number(skipped))));
        if (!full.exists() || full.size() <= fullSize)
            return QStringLiteral("chose %1 past %2, which has room").arg(chosen, full.fileName());
    }
    const QFileInfo current(filePath);
    if (current.exists() && current.size() > fullSize)
        return QStringLiteral("chose the full file ") + chosen;
    stats[QStringLiteral("rolled over")] += index > highest ? 1 : 0;
    return QString();
}

// Half the names are well-formed print files; the others differ in case or
// extension, carry leading zeros, another prefix, an empty, negative, the
// largest or an oversized index, or do not match at all.
QString datedCaseName(QRandomGenerator& rng, const QString& prefix, int range, const QString& today)
{
    const QString i = QString::number(rng.bounded(range));
    const QString date =
        rng.bounded(3) == 0 ? today : QStringLiteral("2025-05-%1").arg(10 + rng.bounded(20));
    const QString tail = QLatin1Char('_') + date + QStringLiteral(".txt");
    const QString forms[] = {
        prefix.toUpper() + QLatin1Char('_') + i + QLatin1Char('_') + date + QStringLiteral(".TXT"),
        prefix + QLatin1Char('_') + i.rightJustified(3, QLatin1Char('0')) + tail,
        prefix + QStringLiteral("_off_") + i + tail,
        prefix + QLatin1Char('_') + tail,
        prefix + QStringLiteral("_-") + i + tail,
        prefix + QStringLiteral("_99999999999") + tail,
        prefix + QStringLiteral("_2147483647") + tail,
        prefix + QLatin1Char('_') + i + QLatin1Char('_') + date + QStringLiteral(".log"),
        QStringLiteral("notes_") + i + QStringLiteral(".txt"),
        prefix + QLatin1Char('_') + i + QStringLiteral(".txt"),
        QStringLiteral("README.TXT")};
    return rng.bounded(2) == 0 ? prefix + QLatin1Char('_') + i + tail : forms[rng.bounded(11)];
}

// Index of a dated candidate: the text between the prefix's "_" and the last
// "_"; -1 when it is empty or not a number.
int datedIndex(const QString& name, const QString& prefix)
{
    const int start = prefix.size() + 1;
    const QString text = name.mid(start, name.lastIndexOf(QLatin1Char('_')) - start);
    bool ok = false;
    const int index = text.toInt(&ok);
    return ok && !text.isEmpty() ? index : -1;
}

QString checkDated(QRandomGenerator& rng, QMap<QString, int>& stats)
{
    static const QString prefixes[] = {QStringLiteral("user_print_file"),
                                       QStringLiteral("user_print_file_off"),
                                       QStringLiteral("Cell")};
    static const int limits[] = {1, 2, 3, 5, 1, 2, 3, 5, 1, 2, 3, 5, 1, 2, 3, 5, 12, 12, 12, 500};
    const QString prefix = prefixes[rng.bounded(3)];
    const int limit = limits[rng.bounded(int(sizeof(limits) / sizeof(limits[0])))];
    const int count = std::max(0, limit - 1 + rng.bounded(4));
    const QDate today = QDate::currentDate();
    const QString todayText = today.toString(QStringLiteral("yyyy-MM-dd"));
    const QDateTime readBase = QDateTime::currentDateTime().addDays(-3);
    CaseDir dir(QStringLiteral("../../log/d%1").arg(rng.generate()));
    QSet<QString> lowerNames;
    QMap<QString, QDateTime> lastRead;
    for (int n = 0; n < count; ++n) {
        const QString name = datedCaseName(rng, prefix, count + 3, todayText);
        if (lowerNames.contains(name.toLower()))
            continue;
        lowerNames.insert(name.toLower());
        const QDateTime read = readBase.addSecs(3600 * rng.bounded(4));
        if (!dir.add(name, pickSize(rng), rng.bounded(15) == 0, read))
            return QStringLiteral("cannot create ") + name;
        lastRead[name] = read;
    }
    const QStringList listed = dir.listedFiles();
    QStringList txtFiles; // in name order, by character codes
    for (const QString& name : listed) {
        if (name.endsWith(QStringLiteral(".txt"), Qt::CaseInsensitive))
            txtFiles.append(name);
    }
    std::sort(txtFiles.begin(), txtFiles.end());
    const QString locked = pickLockable(rng, dir, txtFiles);
    if (!locked.isEmpty()) {
        if (!dir.lock(locked))
            return QStringLiteral("cannot make %1 immutable").arg(locked);
    }
    QString expectedDeleted;
    if (txtFiles.size() > limit) {
        expectedDeleted = txtFiles.first();
        for (const QString& name : txtFiles) {
            if (lastRead.value(name) < lastRead.value(expectedDeleted))
                expectedDeleted = name;
        }
        if (expectedDeleted == locked)
            expectedDeleted.clear();
    }

    QString filePath;
    if (!logfiles::resolveDatedLogPath(prefix, dir.relative, filePath, limit))
        return QStringLiteral("resolution failed");
    if (QDate::currentDate() != today)
        return QString(); // midnight passed during the call: the expected date is unknown

    QStringList expectedAfter = listed;
    expectedAfter.removeOne(expectedDeleted);
    if (dir.listedFiles() != expectedAfter)
        return QStringLiteral("expected only %1 deleted, left: %2")
            .arg(expectedDeleted.isEmpty() ? QStringLiteral("nothing") : expectedDeleted,
                 dir.listedFiles().join(QLatin1Char(' ')));
    stats[QStringLiteral("with a deletion")] += expectedDeleted.isEmpty() ? 0 : 1;

    const QRegularExpression candidatePattern(
        QRegularExpression::wildcardToRegularExpression(prefix + QStringLiteral("_*_*.txt")),
        QRegularExpression::CaseInsensitiveOption);
    QString latest;
    int highest = -1;
    for (const QString& name : expectedAfter) {
        if (QFileInfo(dir.path(name)).isSymLink() || !candidatePattern.match(name).hasMatch())
            continue;
        const int index = datedIndex(name, prefix);
        if (index > highest || (index == highest && name.toLower() < latest.toLower())) {
            highest = index;
            latest = name;
        }
    }
    QString expected;
    if (highest < 0)
        expected = prefix + QStringLiteral("_0_") + todayText + QStringLiteral(".txt");
    else if (QFileInfo(dir.path(latest)).size() > fullSize)
        expected = prefix + QLatin1Char('_') + QString::number(qint64(highest) + 1) +
                   QLatin1Char('_') + todayText + QStringLiteral(".txt");
    else
        expected = latest;
    stats[QStringLiteral("started a new file")] += expected == latest ? 0 : 1;
    if (filePath != dir.relative + QLatin1Char('/') + expected)
        return QStringLiteral("chose %1, expected %2").arg(filePath, expected);
    return QString();
}

} // namespace

class PropertyResolvers : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void resolutions_data();
    void resolutions();

private:
    quint32 _firstSeed = 0;
    int _iterations = 0;
};

void PropertyResolvers::initTestCase()
{
    // The resolvers' directory messages would drown the report.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    _iterations = int(envNumber("USERLOG_PROPERTY_ITERATIONS", 300));
    _firstSeed = envNumber("USERLOG_PROPERTY_SEED", QRandomGenerator::system()->generate());
    qInfo("%d cases per resolver, seeds %u to %u", _iterations, unsigned(_firstSeed),
          unsigned(_firstSeed + quint32(_iterations) - 1));
}

void PropertyResolvers::resolutions_data()
{
    QTest::addColumn<bool>("dated");
    QTest::newRow("indexed files") << false;
    QTest::newRow("dated files") << true;
}

void PropertyResolvers::resolutions()
{
    QFETCH(bool, dated);
    TestTree tree;
    QVERIFY(tree.isValid());
    // Creating files costs about ten times more on disk than on a tmpfs.
    const TmpfsMount mount(tree.root() + QStringLiteral("/log"), qint64(256) << 20);
    if (!mount.isMounted())
        qInfo("running on disk: %s", qPrintable(mount.error()));
    std::signal(SIGALRM, reportHang);
    QMap<QString, int> stats;
    for (int i = 0; i < _iterations; ++i) {
        const quint32 seed = _firstSeed + quint32(i);
        QRandomGenerator rng(seed);
        std::snprintf(hangNote, sizeof(hangNote), "case with seed %u did not finish in 60 s\n",
                      unsigned(seed));
        ::alarm(60);
        const QString failure = dated ? checkDated(rng, stats) : checkIndexed(rng, stats);
        ::alarm(0);
        QVERIFY2(failure.isEmpty(), qPrintable(QStringLiteral("seed %1: %2 (replay with "
                                                              "USERLOG_PROPERTY_SEED=%1 "
                                                              "USERLOG_PROPERTY_ITERATIONS=1)")
                                                   .arg(seed)
                                                   .arg(failure)));
    }
    for (auto it = stats.cbegin(); it != stats.cend(); ++it)
        qInfo("%s: %d of %d cases", qPrintable(it.key()), it.value(), _iterations);
}

QTEST_GUILESS_MAIN(PropertyResolvers)
#include "tst_property_resolvers.moc"
