#include "dirlisting.h"

#include "localeencoding.h"
#include "logformat.h"

#include <QtCore/QDebug>
#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <cstring>

#if defined(Q_OS_UNIX)
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#elif defined(Q_OS_WIN)
#include <windows.h>
#endif

namespace logfiles {

bool ensureDirectory(const QString& dirPath, CreationReport report)
{
    const QDir workingDir;
    if (workingDir.exists(dirPath))
        return true;
    if (!workingDir.mkpath(dirPath)) {
        qDebug(logformat::message::makeLogDirFailed);
        return false;
    }
    if (report == CreationReport::Reported)
        qDebug(logformat::message::makeLogDirSucceeded);
    return true;
}

// A plain stat() on Unix, where a QFileInfo costs more than the system call; a
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
    bool listed;
    bool isSymLink;
};

// What QDir::Files keeps: regular files, and links whose target exists and is
// no directory, whatever else it is (a link to /dev/null or a FIFO silences or
// feeds a log). FIFOs, sockets and devices themselves are not listed, nor are
// dangling links. File systems that leave the type open need an lstat.
EntryKind entryKind(const QByteArray& dirPath, const char* name, unsigned char type)
{
    if (type == DT_REG)
        return {true, false};
    if (type != DT_LNK && type != DT_UNKNOWN)
        return {false, false};
    const QByteArray path = dirPath + '/' + name;
    struct stat info;
    if (type == DT_UNKNOWN) {
        if (::lstat(path.constData(), &info) != 0)
            return {false, false};
        if (!S_ISLNK(info.st_mode))
            return {S_ISREG(info.st_mode), false};
    }
    return {::stat(path.constData(), &info) == 0 && !S_ISDIR(info.st_mode), true};
}

#if defined(__GLIBC__) && (__GLIBC__ > 2 || __GLIBC_MINOR__ >= 30)
// Calls visit(name, type) for every entry. glibc's opendir() also stats the
// directory, one system call per listing that the names do not need; reading
// the entries straight from the descriptor saves it.
template <typename Visit> void forEachEntry(const QByteArray& dirPath, Visit visit)
{
    const int fd = ::open(dirPath.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return;
    alignas(dirent64) char buffer[32768];
    ssize_t size;
    while ((size = ::getdents64(fd, buffer, sizeof buffer)) > 0) {
        for (ssize_t at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
            visit(entry->d_name, entry->d_type);
            at += entry->d_reclen;
        }
    }
    ::close(fd);
}
#else
template <typename Visit> void forEachEntry(const QByteArray& dirPath, Visit visit)
{
    DIR* dir = ::opendir(dirPath.constData());
    if (dir == nullptr)
        return;
    while (const dirent* entry = ::readdir(dir))
        visit(entry->d_name, entry->d_type);
    ::closedir(dir);
}
#endif

// Whether QFile::decodeName gives an ASCII name as its bytes read as Latin-1:
// under a UTF-8 locale codec, or with none (at exit), when decoding falls back
// to Latin-1 itself. Such names skip the codec, which costs more than the rest
// of a name's listing.
bool asciiNamesAreLatin1()
{
    return localeencoding::decodesAsciiAsLatin1();
}

// Eight bytes at a time: a byte-wise test costs as much as the decoding it saves.
bool isAscii(const char* text, int size)
{
    quint64 bits = 0;
    int at = 0;
    for (; at + 8 <= size; at += 8) {
        quint64 word;
        std::memcpy(&word, text + at, sizeof word);
        bits |= word;
    }
    for (; at < size; ++at)
        bits |= static_cast<unsigned char>(text[at]);
    return (bits & 0x8080808080808080ULL) == 0;
}

// A name that does not survive the locale's decoding (a file copied from a
// machine with another encoding) is left out, as QDir leaves it out: under its
// decoded name the file could be neither opened nor deleted.
bool decodeName(const char* name, int size, QString* decoded)
{
    if (!localeencoding::isDecodableName(name, size))
        return false;
    *decoded = localeencoding::decodeListedName(name, size);
    return true;
}

} // namespace

// Every event lists its directories, so the listing dominates an event's cost:
// QDirIterator builds a full QFileInfo per entry, some fifty times the work of
// reading the names.
DirListing::DirListing(const QString& dirPath)
{
    const QByteArray nativePath = QFile::encodeName(dirPath);
    const bool asciiIsLatin1 = asciiNamesAreLatin1();
    QString decoded;
    forEachEntry(nativePath, [&](const char* name, unsigned char type) {
        if (name[0] == '.')
            return; // hidden, and "." and ".."
        const EntryKind kind = entryKind(nativePath, name, type);
        if (!kind.listed)
            return;
        const int size = int(std::strlen(name));
        const int offset = int(_names.size());
        if (asciiIsLatin1 && isAscii(name, size))
            _names.append(QLatin1String(name, size));
        else if (decodeName(name, size, &decoded))
            _names.append(decoded);
        else
            return;
        _entries.append({offset, int(_names.size()) - offset, kind.isSymLink});
    });
}

QVector<ListedFile> listFiles(const QString& dirPath)
{
    return DirListing(dirPath).files();
}

#elif defined(Q_OS_WIN)

// As on Unix, the listing dominates an event's cost. The find data carries the
// attributes, so only the rare entries whose target decides are looked at
// further. QDir::Files on Windows keeps what is neither hidden nor a directory,
// follows symbolic links (and junctions) to their targets, and takes shell
// shortcuts (".lnk", suffix matched case-sensitively) for links as well.
QVector<ListedFile> listFiles(const QString& dirPath)
{
    QVector<ListedFile> files;
    const QString pattern = QDir::toNativeSeparators(dirPath + QLatin1String("/*"));
    WIN32_FIND_DATAW entry;
    const HANDLE find =
        ::FindFirstFileExW(reinterpret_cast<const wchar_t*>(pattern.utf16()), FindExInfoBasic,
                           &entry, FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
    // Any failure, "not found" included, is left to Qt's own listing: it lists
    // an empty directory for a missing one, and reaches paths past MAX_PATH that
    // fail here as "not found" too. Rare, so its cost does not matter.
    if (find == INVALID_HANDLE_VALUE)
        return listFilesPortable(dirPath);
    do {
        if (entry.dwFileAttributes & FILE_ATTRIBUTE_HIDDEN)
            continue;
        const QString name = QString::fromWCharArray(entry.cFileName);
        const bool isLink = (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) ||
                            name.endsWith(QLatin1String(".lnk"));
        if (isLink) {
            // Dangling, or aimed at a directory: not a file. Costs a read of the target.
            const QFileInfo info(dirPath + QLatin1Char('/') + name);
            if (info.isFile())
                files.append({name, info.isSymLink()});
        } else if (!(entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
            files.append({name, false}); // "." and ".." are directories
        }
    } while (::FindNextFileW(find, &entry));
    const bool complete = ::GetLastError() == ERROR_NO_MORE_FILES;
    ::FindClose(find);
    return complete ? files : listFilesPortable(dirPath);
}

#else

QVector<ListedFile> listFiles(const QString& dirPath)
{
    return listFilesPortable(dirPath);
}

#endif

#ifndef Q_OS_UNIX

// Names come decoded from the platform here; the listing only gathers them.
DirListing::DirListing(const QString& dirPath)
{
    for (const ListedFile& file : listFiles(dirPath)) {
        _entries.append({_names.size(), file.name.size(), file.isSymLink});
        _names.append(file.name);
    }
}

#endif

QVector<ListedFile> DirListing::files() const
{
    QVector<ListedFile> files;
    files.reserve(size());
    for (int i = 0; i < size(); ++i)
        files.append({name(i).toString(), isSymLink(i)});
    return files;
}

} // namespace logfiles
