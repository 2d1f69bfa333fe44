#ifndef DATEDLOG_H
#define DATEDLOG_H

#include <QtCore/QString>

// The print files: named by prefix, index and start date, the highest index
// current, and their directory kept to a number of ".txt" files by deleting
// the least recently read. Nothing is remembered between calls.
namespace logfiles {

// ".txt" files a print file directory keeps.
constexpr int maxPrintFiles = 500;

// Chooses the dated print file to append to in dirPath: creates a missing
// directory, lets the retention trim it to maxFiles ".txt" files, takes the
// highest index and starts the next one, stamped today, past maxLogFileSize.
// filePath gets dirPath + "/" + name. False only when the directory cannot be made.
bool resolveDatedLogPath(const QString& namePrefix, const QString& dirPath, QString& filePath,
                         int maxFiles);

// Deletes the least recently read ".txt" file of folderPath when it holds more
// than maxFileCount of them; at most one file per call.
void deleteOldestFiles(const QString& folderPath, int maxFileCount);

} // namespace logfiles

#endif // DATEDLOG_H
