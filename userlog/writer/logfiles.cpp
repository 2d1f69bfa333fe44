#include "logfiles.h"

#include "logformat.h"

#include <QtCore/QDebug>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>

#include <algorithm>
#include <cstring>
#include <limits>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

namespace logfiles {

namespace {

const QLatin1String indexMarker("%1");
const QLatin1String txtSuffix(".txt");

// Case-insensitive tests, tried exactly first: the names this library makes
// match exactly, and an exact comparison costs a fraction of case folding.
// The exact ones are written out: they run for every file of a full print
// directory at every event, and on names this short QString's general calls
// cost several times the comparison.
bool startsWithIgnoringCase(QStringView text, const QString& prefix)
{
    const bool exact =
        text.size() >= prefix.size() &&
        std::memcmp(text.data(), prefix.constData(), sizeof(QChar) * size_t(prefix.size())) == 0;
    return exact || text.startsWith(QStringView(prefix), Qt::CaseInsensitive);
}

bool endsWithIgnoringCase(QStringView text, QLatin1String suffix)
{
    const qsizetype start = text.size() - suffix.size();
    const auto sameChar = [](QChar c, char latin1) { return c == QLatin1Char(latin1); };
    const bool exact =
        start >= 0 && std::equal(text.begin() + start, text.end(), suffix.data(), sameChar);
    return exact || text.endsWith(suffix, Qt::CaseInsensitive);
}

// QString::lastIndexOf(c, from) for 0 <= from < text.size().
int lastIndexOf(QStringView text, QChar c, int from)
{
    while (from >= 0 && text[from] != c)
        --from;
    return from;
}

// QString::toInt, with a shortcut for the plain digit runs that file names
// carry; signs, blanks and overflow still go through toInt itself.
int readIndex(QStringView text, bool* ok)
{
    if (text.isEmpty() || text.size() > 9)
        return text.toString().toInt(ok);
    int value = 0;
    for (const QChar c : text) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return text.toString().toInt(ok);
        value = value * 10 + (c.unicode() - '0');
    }
    *ok = true;
    return value;
}

int indexOfLogFileName(QStringView fileName)
{
    // Scanned by hand, as the print file names are: it runs for every file of
    // the user log directory at every event.
    int dot = 0;
    while (dot < fileName.size() && fileName[dot] != QLatin1Char('.'))
        ++dot;
    const int underscore = dot == 0 ? -1 : lastIndexOf(fileName, QLatin1Char('_'), dot - 1);
    bool ok = false;
    const int index = readIndex(fileName.mid(underscore + 1, dot - underscore - 1), &ok);
    return ok ? index : 0;
}

bool datedIndex(QStringView fileName, const QString& prefix, int* index)
{
    const int start = prefix.size() + 1;
    const int end =
        fileName.isEmpty() ? -1 : lastIndexOf(fileName, QLatin1Char('_'), int(fileName.size()) - 1);
    if (end <= start)
        return false;
    bool ok = false;
    *index = readIndex(fileName.mid(start, end - start), &ok);
    return ok;
}

// QFileInfo(path).size(): the target's size, 0 when it cannot be stat'ed. A
// plain stat() on Unix, where a QFileInfo costs more than the system call; a
// name stat() cannot take (empty, or with a NUL from a custom name) is left to
// QFileInfo, which warns about it.
qint64 fileSize(const QString& path)
{
#ifdef Q_OS_UNIX
    const QByteArray name = QFile::encodeName(path);
    struct stat info;
    if (!name.isEmpty() && !name.contains('\0'))
        return ::stat(name.constData(), &info) == 0 ? qint64(info.st_size) : 0;
#endif
    return QFileInfo(path).size();
}

struct IndexedFile
{
    QString name;
    int index;
};

// Creates a missing directory with all its parents. An entry of that name that
// is not a directory counts as existing: the later open reports the problem.
bool ensureDirectory(const QString& dirPath, bool reportSuccess)
{
    const QDir workingDir;
    if (workingDir.exists(dirPath))
        return true;
    if (!workingDir.mkpath(dirPath)) {
        qDebug(logformat::message::makeLogDirFailed);
        return false;
    }
    if (reportSuccess)
        qDebug(logformat::message::makeLogDirSucceeded);
    return true;
}

// The current file needs only the highest index; no sort unless retention runs.
int highestIndex(const DirListing& listing)
{
    int highest = std::numeric_limits<int>::min();
    for (int i = 0; i < listing.size(); ++i)
        highest = std::max(highest, indexOfLogFileName(listing.name(i)));
    return highest;
}

QVector<IndexedFile> indexedFilesByIndex(const QVector<ListedFile>& files)
{
    QVector<IndexedFile> byIndex;
    byIndex.reserve(files.size());
    for (const ListedFile& file : files)
        byIndex.append({file.name, indexOfLogFile(file.name)});
    std::stable_sort(byIndex.begin(), byIndex.end(),
                     [](const IndexedFile& a, const IndexedFile& b) { return a.index < b.index; });
    return byIndex;
}

// Among files of equal index (stray names read as 0, and in the offline
// directory every file does), the oldest-modified is deleted first, then the
// first by name: never by the listing's order, which differs between file
// systems. Only the files the retention can reach are stat'ed, and only when
// it has to delete.
void orderRetentionCandidatesByAge(const QDir& logDir, QVector<IndexedFile>& byIndex,
                                   int deleteCount)
{
    const int boundaryIndex = byIndex.at(deleteCount - 1).index;
    auto end = std::find_if(byIndex.begin(), byIndex.end(), [boundaryIndex](const IndexedFile& f) {
        return f.index > boundaryIndex;
    });
    struct Aged
    {
        IndexedFile file;
        QDateTime modified;
    };
    QVector<Aged> aged;
    aged.reserve(int(end - byIndex.begin()));
    for (auto it = byIndex.begin(); it != end; ++it)
        aged.append({*it, QFileInfo(logDir, it->name).lastModified()});
    std::stable_sort(aged.begin(), aged.end(), [](const Aged& a, const Aged& b) {
        if (a.file.index != b.file.index)
            return a.file.index < b.file.index;
        if (a.modified != b.modified)
            return a.modified < b.modified;
        return a.file.name < b.file.name;
    });
    for (int i = 0; i < aged.size(); ++i)
        byIndex[i] = aged.at(i).file;
}

// Deletes from the low end while maxFiles or more files are left; a failed
// deletion ends the retention for this call and keeps the file in the order.
void trimLowestIndexes(QDir& logDir, QVector<IndexedFile>& byIndex, int maxFiles)
{
    if (byIndex.size() < maxFiles)
        return;
    const int deleteCount = std::min(byIndex.size() - maxFiles + 1, byIndex.size() - 1);
    if (deleteCount <= 0)
        return;
    orderRetentionCandidatesByAge(logDir, byIndex, deleteCount);
    int deleted = 0;
    while (deleted < deleteCount && logDir.remove(byIndex.at(deleted).name))
        ++deleted;
    byIndex.remove(0, deleted);
}

// Counts up from the highest index past full files. A pattern without "%1"
// names one file for every index, so a full one is appended to regardless.
QString firstIndexedFileWithRoom(const QString& dirPrefix, const QString& namePattern, qint64 index)
{
    QString path = dirPrefix + indexedFileName(namePattern, index);
    if (!namePattern.contains(indexMarker))
        return path;
    // The size reads 0 for a missing file, so one stat answers both questions.
    while (fileSize(path) > maxLogFileSize)
        path = dirPrefix + indexedFileName(namePattern, ++index);
    return path;
}

bool isTxtName(QStringView name)
{
    return endsWithIgnoringCase(name, txtSuffix);
}

// The least recently read ".txt" file; equal times go to the first in name order.
QString leastRecentlyReadTxtFile(const QDir& folder, const QStringList& txtNames)
{
    QString oldestName;
    QDateTime oldestRead;
    for (const QString& name : txtNames) {
        const QDateTime read = QFileInfo(folder.absoluteFilePath(name)).lastRead();
        const bool older = oldestName.isNull() || read < oldestRead ||
                           (read == oldestRead && name.compare(oldestName) < 0);
        if (older) {
            oldestName = name;
            oldestRead = read;
        }
    }
    return oldestName;
}

// Returns the name of the deleted file, or a null string when none was deleted.
QString deleteOldestTxtFile(const QString& folderPath, const DirListing& listing, int maxFileCount)
{
    // Counting is cheap; the per-file time queries run only when a file has to go.
    int txtCount = 0;
    for (int i = 0; i < listing.size(); ++i)
        txtCount += isTxtName(listing.name(i)) ? 1 : 0;
    if (txtCount <= maxFileCount)
        return QString();
    QStringList txtNames;
    txtNames.reserve(txtCount);
    for (int i = 0; i < listing.size(); ++i) {
        if (isTxtName(listing.name(i)))
            txtNames.append(listing.name(i).toString());
    }
    const QDir folder(folderPath);
    const QString oldest = leastRecentlyReadTxtFile(folder, txtNames);
    return QFile::remove(folder.absoluteFilePath(oldest)) ? oldest : QString();
}

// prefix + "_*_*.txt", case-insensitive. Prepared once per listing: whether the
// prefix holds wildcards, and the filter when it does, are not worked out per file.
class DatedNameMatcher
{
public:
    explicit DatedNameMatcher(const QString& prefix) : _prefix(prefix)
    {
        for (const QChar c : prefix) {
            if (c == QLatin1Char('*') || c == QLatin1Char('?') || c == QLatin1Char('['))
                _wildcards = true;
        }
        // A custom name may itself hold wildcards; match the way a directory
        // name filter would.
        if (_wildcards)
            _filter = QRegularExpression(QRegularExpression::wildcardToRegularExpression(
                                             prefix + QStringLiteral("_*_*.txt")),
                                         QRegularExpression::CaseInsensitiveOption);
    }

    bool matches(QStringView fileName) const
    {
        // An invalid filter (an unmatched "[") matches nothing; asking it
        // anyway would print a warning for every file of every event.
        if (_wildcards)
            return _filter.isValid() && _filter.match(fileName.toString()).hasMatch();
        return lastSeparator(fileName) >= _prefix.size() + 1;
    }

    // matches() and datedFileIndex() in one: the "_" that ends the index is the
    // one the match looks for, since the ".txt" after it holds none.
    bool matchesWithIndex(QStringView fileName, int* index) const
    {
        if (_wildcards)
            return matches(fileName) && datedIndex(fileName, _prefix, index);
        const int start = _prefix.size() + 1;
        const int end = lastSeparator(fileName);
        if (end <= start)
            return false;
        bool ok = false;
        *index = readIndex(fileName.mid(start, end - start), &ok);
        return ok;
    }

private:
    // Without wildcards: the last "_" before the ".txt" of a name that starts
    // with prefix + "_", or -1.
    int lastSeparator(QStringView fileName) const
    {
        const int start = _prefix.size() + 1;
        const int suffixStart = int(fileName.size()) - txtSuffix.size();
        if (suffixStart < start + 1 || fileName.at(start - 1) != QLatin1Char('_') ||
            !startsWithIgnoringCase(fileName, _prefix) ||
            !endsWithIgnoringCase(fileName, txtSuffix))
            return -1;
        return lastIndexOf(fileName, QLatin1Char('_'), suffixStart - 1);
    }

    QString _prefix;
    QRegularExpression _filter;
    bool _wildcards = false;
};

// latestDatedFile's choice, offered one file at a time. Only the few files
// that lead so far get a string of their own.
class LatestDatedChoice
{
public:
    LatestDatedChoice(const QString& prefix, const QString& skipName, QString* latestName)
        : _matcher(prefix), _skipName(skipName), _latestName(latestName)
    {}

    void offer(QStringView name, bool isSymLink)
    {
        int index = 0;
        if (isSymLink || name == QStringView(_skipName) ||
            !_matcher.matchesWithIndex(name, &index) || index < _highest)
            return;
        const QString file = name.toString();
        const QString lower = file.toLower();
        // Names equal but for case can coexist on a case-sensitive file
        // system; their exact order decides, not the listing's.
        const int order = index > _highest ? -1 : lower.compare(_latestLower);
        if (order < 0 || (order == 0 && file < *_latestName)) {
            _highest = index;
            *_latestName = file;
            _latestLower = lower;
        }
    }

    int highest() const { return _highest; }

private:
    const DatedNameMatcher _matcher;
    const QString& _skipName;
    QString* _latestName;
    QString _latestLower;
    int _highest = -1;
};

int latestDatedFile(const DirListing& listing, const QString& prefix, const QString& skipName,
                    QString* latestName)
{
    LatestDatedChoice choice(prefix, skipName, latestName);
    for (int i = 0; i < listing.size(); ++i)
        choice.offer(listing.name(i), listing.isSymLink(i));
    return choice.highest();
}

} // namespace

int indexOfLogFile(const QString& fileName)
{
    return indexOfLogFileName(fileName);
}

QString indexedFileName(const QString& pattern, qint64 index)
{
    // replace() rather than arg(): arg() complains about patterns without a marker.
    return QString(pattern).replace(indexMarker, QString::number(index));
}

bool matchesDatedPattern(const QString& fileName, const QString& prefix)
{
    return DatedNameMatcher(prefix).matches(fileName);
}

bool datedFileIndex(const QString& fileName, const QString& prefix, int* index)
{
    return datedIndex(fileName, prefix, index);
}

QString datedFileName(const QString& prefix, qint64 index, const QDate& startDate)
{
    return prefix + QLatin1Char('_') + QString::number(index) + QLatin1Char('_') +
           startDate.toString(QStringLiteral("yyyy-MM-dd")) + txtSuffix;
}

int latestDatedFile(const QVector<ListedFile>& files, const QString& prefix,
                    const QString& skipName, QString* latestName)
{
    LatestDatedChoice choice(prefix, skipName, latestName);
    for (const ListedFile& file : files)
        choice.offer(file.name, file.isSymLink);
    return choice.highest();
}

bool resolveIndexedLogPath(const QString& namePattern, const QString& dirPath, QString& filePath,
                           int maxFiles)
{
    QDir logDir(QDir::currentPath() + QDir::separator() + dirPath);
    const QString dirPrefix = logDir.absolutePath() + QDir::separator();

    // Steps merged: a listing with entries proves the directory exists, which
    // saves a stat on every event; only an empty listing needs the existence
    // test, and a missing directory lists as empty. The relative path names the
    // same directory and is cheaper to list: the listing converts only names.
    const DirListing listing(dirPath);
    if (listing.isEmpty()) {
        if (!ensureDirectory(dirPath, true))
            return false;
        filePath = dirPrefix + indexedFileName(namePattern, 0);
        return true;
    }

    int current = 0;
    if (listing.size() >= maxFiles) {
        QVector<IndexedFile> byIndex = indexedFilesByIndex(listing.files());
        trimLowestIndexes(logDir, byIndex, maxFiles);
        current = byIndex.last().index;
    } else {
        current = highestIndex(listing);
    }
    filePath = firstIndexedFileWithRoom(dirPrefix, namePattern, current);
    return true;
}

bool resolveDatedLogPath(const QString& namePrefix, const QString& dirPath, QString& filePath,
                         int maxFiles)
{
    // Steps merged: one listing serves the directory check, the retention and the
    // choice of the current file, with the file just deleted left out. A second
    // listing would differ only by another program's change in between, a race
    // that no order of the steps could tell apart.
    const DirListing listing(dirPath);
    if (listing.isEmpty() && !ensureDirectory(dirPath, false))
        return false;

    const QString deleted = deleteOldestTxtFile(dirPath, listing, maxFiles);
    QString latestName;
    const int highest = latestDatedFile(listing, namePrefix, deleted, &latestName);
    const QString dirPrefix = dirPath + QLatin1Char('/');
    if (highest < 0) {
        filePath = dirPrefix + datedFileName(namePrefix, 0, QDate::currentDate());
        return true;
    }
    filePath = dirPrefix + latestName;
    if (fileSize(filePath) > maxLogFileSize)
        filePath = dirPrefix + datedFileName(namePrefix, qint64(highest) + 1, QDate::currentDate());
    return true;
}

bool openForAppend(QFile& file)
{
    return file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text);
}

QByteArray openErrorText(const QFile& file)
{
    return file.errorString().toLocal8Bit();
}

void deleteOldestFiles(const QString& folderPath, int maxFileCount)
{
    // An empty path names the working directory, as it does for QDir.
    const QString folder = folderPath.isEmpty() ? QStringLiteral(".") : folderPath;
    if (!QDir(folder).exists())
        return;
    deleteOldestTxtFile(folder, DirListing(folder), maxFileCount);
}

} // namespace logfiles
