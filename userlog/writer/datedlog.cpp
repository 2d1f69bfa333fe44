#include "datedlog.h"

#include "dirlisting.h"
#include "filenames.h"

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QStringList>

namespace logfiles {

namespace {

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
        txtCount += isTxtFileName(listing.name(i)) ? 1 : 0;
    if (txtCount <= maxFileCount)
        return QString();
    QStringList txtNames;
    txtNames.reserve(txtCount);
    for (int i = 0; i < listing.size(); ++i) {
        if (isTxtFileName(listing.name(i)))
            txtNames.append(listing.name(i).toString());
    }
    const QDir folder(folderPath);
    const QString oldest = leastRecentlyReadTxtFile(folder, txtNames);
    return QFile::remove(folder.absoluteFilePath(oldest)) ? oldest : QString();
}

// The candidates are the files the name filter takes, links left out, and
// not the file just deleted.
QString latestPrintFile(const DirListing& listing, const QString& prefix, const QString& deleted,
                        int* highestIndex)
{
    LatestDatedChoice choice(prefix);
    for (int i = 0; i < listing.size(); ++i) {
        if (!listing.isSymLink(i) && listing.name(i) != QStringView(deleted))
            choice.offer(listing.name(i));
    }
    *highestIndex = choice.highestIndex();
    return choice.latestName();
}

} // namespace

bool resolveDatedLogPath(const QString& namePrefix, const QString& dirPath, QString& filePath,
                         int maxFiles)
{
    // Steps merged: one listing serves the directory check, the retention and the
    // choice of the current file, with the file just deleted left out. A second
    // listing would differ only by another program's change in between, a race
    // that no order of the steps could tell apart.
    const DirListing listing(dirPath);
    if (listing.isEmpty() && !ensureDirectory(dirPath, CreationReport::Silent))
        return false;

    const QString deleted = deleteOldestTxtFile(dirPath, listing, maxFiles);
    int highest = -1;
    const QString latestName = latestPrintFile(listing, namePrefix, deleted, &highest);
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

void deleteOldestFiles(const QString& folderPath, int maxFileCount)
{
    // An empty path names the working directory, as it does for QDir.
    const QString folder = folderPath.isEmpty() ? QStringLiteral(".") : folderPath;
    if (!QDir(folder).exists())
        return;
    deleteOldestTxtFile(folder, DirListing(folder), maxFileCount);
}

} // namespace logfiles
