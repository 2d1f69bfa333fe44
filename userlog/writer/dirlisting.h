#ifndef DIRLISTING_H
#define DIRLISTING_H

#include <QtCore/QString>
#include <QtCore/QVector>

// Directory listings for the log directories: every event lists its
// directories, so the listing dominates an event's cost, and the platform's
// own directory reading replaces a QFileInfo per entry.
namespace logfiles {

// One non-hidden file (or symbolic link to a file) directly inside a directory.
struct ListedFile
{
    QString name;
    bool isSymLink;
};

} // namespace logfiles

// Moved in memory as a whole when a listing grows: hundreds of names per event.
Q_DECLARE_TYPEINFO(logfiles::ListedFile, Q_MOVABLE_TYPE);

namespace logfiles {

// Lists the non-hidden files of dirPath, links to files included, in no
// particular order: what QDir(dirPath).entryInfoList(QDir::Files) lists. A
// missing directory lists as empty. Names only: no file is stat'ed except
// links, whose target decides whether they count as files.
QVector<ListedFile> listFiles(const QString& dirPath);

// The same listing through QDirIterator alone: what listFiles falls back to
// where the platform has no cheaper native listing, or its own fails.
QVector<ListedFile> listFilesPortable(const QString& dirPath);

} // namespace logfiles

#endif // DIRLISTING_H
