#ifndef LOGFILES_H
#define LOGFILES_H

#include "dirlisting.h"

#include <QtCore/QDate>
#include <QtCore/QString>

class QFile;

// File naming, resolution and retention of the log directories. Nothing here
// remembers anything between calls: the directory listing is the only memory,
// because other programs may add, rename or delete log files at any time.
namespace logfiles {

// A file holding more than this many bytes is full; the next write starts a new one.
constexpr qint64 maxLogFileSize = 1048576;
// Files an indexed log directory keeps (user log, bcc log), the new one included.
constexpr int maxIndexedLogFiles = 100;
// ".txt" files a print file directory keeps.
constexpr int maxPrintFiles = 500;

// Index of any file in an indexed log directory: the text after the last "_"
// of the part before the first ".", or 0 when that is not a number.
// "user_log_file_12.old.txt" gives 12, "user_log_file_007.txt" 7, "readme.txt" 0.
int indexOfLogFile(const QString& fileName);

// ("user_log_file_%1.txt", 3) gives "user_log_file_3.txt". A pattern without
// "%1" is the file name for every index.
QString indexedFileName(const QString& pattern, qint64 index);

// Whether fileName is a dated print file candidate for prefix: the wildcard
// prefix + "_*_*.txt", case-insensitive.
bool matchesDatedPattern(const QString& fileName, const QString& prefix);

// Index of a dated print file: the text between prefix + "_" and the last "_".
// ("user_print_file_007_2025-05-26.txt", "user_print_file") gives 7; false when
// that text is empty or not a number ("user_print_file_off_0_2025-05-26.txt").
bool datedFileIndex(const QString& fileName, const QString& prefix, int* index);

// The current print file among files: the highest valid index of a candidate
// for prefix, ties going to the first in case-insensitive name order, then in
// exact name order. Returns that index and sets latestName, or returns -1 when
// no candidate counts. skipName is a file just deleted.
int latestDatedFile(const QVector<ListedFile>& files, const QString& prefix,
                    const QString& skipName, QString* latestName);

// ("user_print_file", 4, 2025-06-02) gives "user_print_file_4_2025-06-02.txt".
QString datedFileName(const QString& prefix, qint64 index, const QDate& startDate);

// Chooses the indexed log file to append to in dirPath (relative to the working
// directory): creates a missing directory, deletes lowest-indexed files while
// maxFiles or more are there, and rolls over past maxLogFileSize. filePath gets
// an absolute path with the native separator before the file name. False only
// when the directory cannot be made.
bool resolveIndexedLogPath(const QString& namePattern, const QString& dirPath, QString& filePath,
                           int maxFiles);

// Chooses the dated print file to append to in dirPath: creates a missing
// directory, lets deleteOldestFiles trim it to maxFiles ".txt" files, takes
// the highest index and starts the next one, stamped today, past
// maxLogFileSize. filePath gets dirPath + "/" + name. False only when the
// directory cannot be made.
bool resolveDatedLogPath(const QString& namePrefix, const QString& dirPath, QString& filePath,
                         int maxFiles);

// Opens a log file write-only, appending, in text mode, creating it if new:
// QFile's own open, whose failure says why in the framework's words.
bool openForAppend(QFile& file);

// The file's error text, in the local 8-bit encoding that debug messages use.
QByteArray openErrorText(const QFile& file);

// Deletes the least recently read ".txt" file of folderPath when it holds more
// than maxFileCount of them; at most one file per call.
void deleteOldestFiles(const QString& folderPath, int maxFileCount);

} // namespace logfiles

#endif // LOGFILES_H
