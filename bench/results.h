#ifndef RESULTS_H
#define RESULTS_H

#include <ostream>
#include <string>
#include <vector>

// What the benchmarks measured, collected across Google Benchmark's threads and
// runs, and the one table of ratios printed at the end.
namespace results {

// Cost of one call on the calling thread, in nanoseconds; key "host/<form>/<threads>/<impl>".
void addCallSamples(const std::string& key, const std::vector<double>& nanoseconds);

// The same host measurements made by a child process with Qt's own Unix event
// dispatcher (QT_NO_GLIB=1): its lines "hostresult <key> <median> <p99>".
void writeCallStats(std::ostream& out);
void readCallStats(const std::string& lines);

// One round of a writer benchmark; key "writer/<form>/<dirs>/<impl>".
void addWriterRound(const std::string& key, double seconds, long entries);

// Median cost of reading the clock twice, subtracted from every call sample.
void setTimerOverhead(double nanoseconds);

struct Memory
{
    double singleBytesPerEntry = -1;
    double batchBytesPerEntry = -1;
    double spdlogBytesPerSlot = -1;
    long entries = 0;
};

void printTable(std::ostream& out, const Memory& memory, const std::string& floorCheck);

} // namespace results

#endif // RESULTS_H
