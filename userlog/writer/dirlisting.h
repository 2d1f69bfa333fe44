#ifndef DIRLISTING_H
#define DIRLISTING_H

#include <QtCore/QString>
#include <QtCore/QStringView>
#include <QtCore/QVector>

// What the resolvers ask of a log directory: its files, whether it is there,
// and how large a file is. Every event lists its directories, so the listing
// dominates an event's cost, and the platform's own directory reading replaces
// a QFileInfo per entry.
namespace logfiles {

// A file holding more than this many bytes is full; the next write starts a new one.
constexpr qint64 maxLogFileSize = 1048576;

// What ensureDirectory says of a directory it had to make.
enum class CreationReport
{
    Silent,
    Reported,
};

// Makes a missing directory (relative to the working directory) with all its
// parents; false, with its message, when that fails. An entry of that name
// that is not a directory counts as there: the later open reports the problem.
bool ensureDirectory(const QString& dirPath, CreationReport report);

// QFileInfo(path).size(): the target's size, 0 when it cannot be read.
qint64 fileSize(const QString& path);

// One non-hidden file (or symbolic link to anything but a directory) directly
// inside a directory.
struct ListedFile
{
    QString name;
    bool isSymLink;
};

} // namespace logfiles

// Moved in memory as a whole when a listing grows: hundreds of names per event.
Q_DECLARE_TYPEINFO(logfiles::ListedFile, Q_MOVABLE_TYPE);

namespace logfiles {

// Lists the non-hidden files of dirPath in no particular order: what
// QDir(dirPath).entryInfoList(QDir::Files) lists, links to anything but a
// directory included, names that do not decode in the locale's encoding left
// out. A missing directory lists as empty. Names only: no file is stat'ed
// except links, whose target decides whether they are listed.
QVector<ListedFile> listFiles(const QString& dirPath);

// The same listing through QDirIterator alone: what listFiles falls back to
// where the platform has no cheaper native listing, or its own fails.
QVector<ListedFile> listFilesPortable(const QString& dirPath);

// listFiles' listing with every name in one string, handed out as views. A
// print directory lists hundreds of files at every event, and most of them
// are only matched against a pattern: a string of their own would cost them
// more than the matching.
class DirListing
{
public:
    explicit DirListing(const QString& dirPath);

    int size() const { return int(_entries.size()); }
    bool isEmpty() const { return _entries.isEmpty(); }
    bool isSymLink(int i) const { return _entries.at(i).isSymLink; }
    // The name of file i as listFiles gives it, valid while the listing lives.
    QStringView name(int i) const
    {
        return QStringView(_names).mid(_entries.at(i).offset, _entries.at(i).size);
    }
    QVector<ListedFile> files() const;

private:
    struct Entry
    {
        int offset;
        int size;
        bool isSymLink;
    };
    QString _names;
    QVector<Entry> _entries;
};

} // namespace logfiles

#endif // DIRLISTING_H
