#include "logfiles.h"

#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#if defined(Q_OS_UNIX)
#include <dirent.h>
#include <sys/stat.h>
#endif

namespace logfiles {

QVector<ListedFile> listFilesPortable(const QString& dirPath)
{
    QVector<ListedFile> files;
    QDirIterator it(dirPath, QDir::Files);
    while (it.hasNext()) {
        it.next();
        const QFileInfo info = it.fileInfo();
        files.append({info.fileName(), info.isSymLink()});
    }
    return files;
}

#if defined(Q_OS_UNIX)

namespace {

struct EntryKind
{
    bool isFile;
    bool isSymLink;
};

// Links count when their target is a regular file, as with QDir::Files; a
// dangling link does not. File systems that leave the type open need a stat.
EntryKind entryKind(const QByteArray& dirPath, const dirent& entry)
{
    if (entry.d_type == DT_REG)
        return {true, false};
    if (entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN)
        return {false, false};
    const QByteArray path = dirPath + '/' + entry.d_name;
    struct stat info;
    bool isSymLink = entry.d_type == DT_LNK;
    if (entry.d_type == DT_UNKNOWN) {
        if (::lstat(path.constData(), &info) != 0)
            return {false, false};
        isSymLink = S_ISLNK(info.st_mode);
        if (!isSymLink)
            return {S_ISREG(info.st_mode), false};
    }
    return {::stat(path.constData(), &info) == 0 && S_ISREG(info.st_mode), isSymLink};
}

} // namespace

// Every event lists its directories, so the listing dominates an event's cost:
// QDirIterator builds a full QFileInfo per entry, some fifty times the work of
// reading the names. Same rules: non-hidden regular files and links to them.
QVector<ListedFile> listFiles(const QString& dirPath)
{
    QVector<ListedFile> files;
    const QByteArray nativePath = QFile::encodeName(dirPath);
    DIR* dir = ::opendir(nativePath.constData());
    if (dir == nullptr)
        return files;
    while (const dirent* entry = ::readdir(dir)) {
        if (entry->d_name[0] == '.')
            continue; // hidden, and "." and ".."
        const EntryKind kind = entryKind(nativePath, *entry);
        if (kind.isFile)
            files.append({QFile::decodeName(entry->d_name), kind.isSymLink});
    }
    ::closedir(dir);
    return files;
}

#else

QVector<ListedFile> listFiles(const QString& dirPath)
{
    return listFilesPortable(dirPath);
}

#endif

} // namespace logfiles
