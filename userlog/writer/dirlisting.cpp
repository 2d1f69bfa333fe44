#include "logfiles.h"

#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#if defined(Q_OS_UNIX)
#include <dirent.h>
#include <sys/stat.h>
#elif defined(Q_OS_WIN)
#include <windows.h>
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

#elif defined(Q_OS_WIN)

// As on Unix, the listing dominates an event's cost. The find data carries the
// attributes, so only shortcuts are looked at further. QDir::Files on Windows
// keeps what is neither hidden nor a directory and takes symbolic links and
// shell shortcuts (".lnk") for links.
QVector<ListedFile> listFiles(const QString& dirPath)
{
    QVector<ListedFile> files;
    const QString pattern = QDir::toNativeSeparators(dirPath + QLatin1String("/*"));
    WIN32_FIND_DATAW entry;
    const HANDLE find =
        ::FindFirstFileExW(reinterpret_cast<const wchar_t*>(pattern.utf16()), FindExInfoBasic,
                           &entry, FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
    if (find == INVALID_HANDLE_VALUE)
        return files;
    do {
        if (entry.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN))
            continue; // also "." and ".."
        const QString name = QString::fromWCharArray(entry.cFileName);
        // Qt matches the suffix case-sensitively, and only a shortcut that
        // resolves to a file is listed: the rare one costs a read of its target.
        const bool isShortcut = name.endsWith(QLatin1String(".lnk"));
        if (isShortcut && !QFileInfo(dirPath + QLatin1Char('/') + name).isFile())
            continue;
        const bool isSymLink = ((entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) &&
                                entry.dwReserved0 == IO_REPARSE_TAG_SYMLINK) ||
                               isShortcut;
        files.append({name, isSymLink});
    } while (::FindNextFileW(find, &entry));
    ::FindClose(find);
    return files;
}

#else

QVector<ListedFile> listFiles(const QString& dirPath)
{
    return listFilesPortable(dirPath);
}

#endif

} // namespace logfiles
