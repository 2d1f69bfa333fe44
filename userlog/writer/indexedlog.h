#ifndef INDEXEDLOG_H
#define INDEXEDLOG_H

#include <QtCore/QString>

// The indexed logs (user log, bcc log): numbered files, the highest current.
// Nothing is remembered between calls: the directory listing is the only
// memory, because other programs may add, rename or delete log files at any time.
namespace logfiles {

// Files an indexed log directory keeps, the new one included.
constexpr int maxIndexedLogFiles = 100;

// Chooses the indexed log file to append to in dirPath (relative to the working
// directory): creates a missing directory, deletes lowest-indexed files while
// maxFiles or more are there, and rolls over past maxLogFileSize. filePath gets
// an absolute path with the native separator before the file name. False only
// when the directory cannot be made.
bool resolveIndexedLogPath(const QString& namePattern, const QString& dirPath, QString& filePath,
                           int maxFiles);

} // namespace logfiles

#endif // INDEXEDLOG_H
