#ifndef BENCH_H
#define BENCH_H

#include <QtCore/QString>
#include <QtCore/QTemporaryDir>

#include <chrono>
#include <map>
#include <string>
#include <vector>

// One line of the result table: a cost of the library beside the same cost of
// a peer, and ours / peer.
struct Row
{
    std::string what;
    double ours;
    double peer;
    double ratio;
    std::string unit;
};

// Files by path under a tree's log directory, with their contents.
using LogFiles = std::map<QString, QByteArray>;

// A fresh temporary tree entered at <root>/app/bin, so the library's
// "../../log/..." lands in <root>/log. The previous directory comes back after.
class BenchTree
{
public:
    BenchTree();
    ~BenchTree();
    BenchTree(const BenchTree&) = delete;
    BenchTree& operator=(const BenchTree&) = delete;

    // <root>/log/<path>
    std::string logPath(const char* path) const;
    LogFiles logFiles() const;

private:
    QTemporaryDir _dir;
    QString _previous;
};

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// The value below which the given fraction of the values lie.
double percentile(std::vector<double> values, double fraction);

// One entry as the benchmarks hand it over; every entry has block "MAIN".
struct Entry
{
    std::string time;
    std::string message;
    int level;
};

constexpr size_t batchSize = 100;

// The library's rules for a line's tag and for copying it to the print file.
const char* levelTag(int level, bool batch);
bool isPrintEntry(int level, bool batch);

// One event the way the library handles it: a single entry, or a whole batch,
// written with plain POSIX calls.
void floorEvent(const Entry* entries, size_t count, bool batch, bool writePerLine);

std::vector<Row> hostRows(const std::string& dispatcher);
// floorCheck says whether the floor wrote what the library wrote, run for run.
std::vector<Row> writerRows(std::string* floorCheck, bool* floorMatches);
// --syscalls: one run of single entries through the library or the floor.
int syscallWorkload(bool floor, int entries);
double systemCallsPerEntry(bool floor);
// Run in a process of its own: prints the bytes held per queued entry.
int memoryProbe(bool batch);

#endif // BENCH_H
