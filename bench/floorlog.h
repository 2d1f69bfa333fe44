#ifndef FLOORLOG_H
#define FLOORLOG_H

#include <string>
#include <vector>

// The least file-system work that produces the files the connected writer
// produces, in plain C++ on POSIX calls: per event one listing of each
// directory (names only), a size check of the chosen files, then open for
// append, one write and close per file. A file is stat'ed beyond that only when
// the outcome depends on it (rollover past 1 MiB, retention). Nothing is
// remembered between events. It knows only the connected configuration
// (user log "user_log_file_%1.txt" in ../../log/online, dated print files
// "user_print_file_<n>_<date>.txt" in ../../log/useronline).
namespace floorlog {

struct Entry
{
    std::string time;
    std::string block;
    std::string message;
    int level;
};

// One single-entry event; false when a directory or file could not be made.
bool writeSingle(const Entry& entry);

// One batch event; the whole batch goes into the two files chosen at its start,
// with one write per file, or, with writePerLine, one write per line (the
// library flushes every line).
bool writeBatch(const std::vector<Entry>& entries, bool writePerLine = false);

} // namespace floorlog

#endif // FLOORLOG_H
