#include "indexedlog.h"

#include "dirlisting.h"
#include "filenames.h"

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>

#include <algorithm>
#include <limits>

namespace logfiles {

namespace {

struct IndexedFile
{
    QString name;
    int index;
};

// The current file needs only the highest index; no sort unless retention runs.
int highestIndex(const DirListing& listing)
{
    int highest = std::numeric_limits<int>::min();
    for (int i = 0; i < listing.size(); ++i)
        highest = std::max(highest, indexOfLogFile(listing.name(i)));
    return highest;
}

QVector<IndexedFile> filesByIndex(const DirListing& listing)
{
    QVector<IndexedFile> byIndex;
    byIndex.reserve(listing.size());
    for (int i = 0; i < listing.size(); ++i)
        byIndex.append({listing.name(i).toString(), indexOfLogFile(listing.name(i))});
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
    if (!namePattern.contains(QLatin1String("%1")))
        return path;
    // The size reads 0 for a missing file, so one stat answers both questions.
    while (fileSize(path) > maxLogFileSize)
        path = dirPrefix + indexedFileName(namePattern, ++index);
    return path;
}

} // namespace

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
        if (!ensureDirectory(dirPath, CreationReport::Reported))
            return false;
        filePath = dirPrefix + indexedFileName(namePattern, 0);
        return true;
    }

    int current = 0;
    if (listing.size() >= maxFiles) {
        QVector<IndexedFile> byIndex = filesByIndex(listing);
        trimLowestIndexes(logDir, byIndex, maxFiles);
        current = byIndex.last().index;
    } else {
        current = highestIndex(listing);
    }
    filePath = firstIndexedFileWithRoom(dirPrefix, namePattern, current);
    return true;
}

} // namespace logfiles
