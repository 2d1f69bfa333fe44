#include "results.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <mutex>
#include <sstream>

namespace results {

namespace {

std::mutex storeMutex;
std::map<std::string, std::vector<double>> callSamples;
struct Rounds
{
    std::vector<double> seconds;
    long entries = 0;
};
std::map<std::string, Rounds> writerRounds;
double timerOverhead = 0;
struct CallStats
{
    double median = -1;
    double p99 = -1;
};
std::map<std::string, CallStats> unixDispatcherStats;

double percentile(std::vector<double> values, double fraction)
{
    if (values.empty())
        return -1;
    const size_t rank = std::min(values.size() - 1, size_t(fraction * double(values.size())));
    std::nth_element(values.begin(), values.begin() + long(rank), values.end());
    return values[rank];
}

CallStats callStats(const std::string& key)
{
    const auto it = callSamples.find(key);
    if (it == callSamples.end())
        return {};
    std::vector<double> net = it->second;
    for (double& ns : net)
        ns = std::max(0.0, ns - timerOverhead);
    return {percentile(net, 0.5), percentile(net, 0.99)};
}

// Median seconds per entry over the rounds, -1 when missing.
double secondsPerEntry(const std::string& key)
{
    const auto it = writerRounds.find(key);
    if (it == writerRounds.end() || it->second.entries == 0)
        return -1;
    return percentile(it->second.seconds, 0.5) / double(it->second.entries);
}

std::string format(const char* pattern, double value)
{
    if (value < 0)
        return "n/a";
    char text[64];
    std::snprintf(text, sizeof text, pattern, value);
    return text;
}

std::string ratio(double ours, double theirs)
{
    return ours < 0 || theirs <= 0 ? "n/a" : format("%.2fx", ours / theirs);
}

// Median over the rounds of ours / theirs within each round: the two ran one
// right after the other, so load that drifts across the run cancels out.
std::string roundRatio(const std::string& ours, const std::string& theirs)
{
    const auto a = writerRounds.find(ours);
    const auto b = writerRounds.find(theirs);
    if (a == writerRounds.end() || b == writerRounds.end() || a->second.entries == 0 ||
        b->second.entries == 0)
        return "n/a";
    std::vector<double> ratios;
    for (size_t i = 0; i < std::min(a->second.seconds.size(), b->second.seconds.size()); ++i) {
        const double perEntryA = a->second.seconds[i] / double(a->second.entries);
        const double perEntryB = b->second.seconds[i] / double(b->second.entries);
        ratios.push_back(perEntryA / perEntryB);
    }
    return ratios.empty() ? "n/a" : format("%.2fx", percentile(ratios, 0.5));
}

void row(std::ostream& out, const std::vector<std::string>& cells, const std::vector<int>& widths)
{
    for (size_t i = 0; i < cells.size(); ++i) {
        const int width = widths[std::min(i, widths.size() - 1)];
        std::string cell = cells[i];
        if (int(cell.size()) < width)
            cell = i == 0 ? cell + std::string(size_t(width) - cell.size(), ' ')
                          : std::string(size_t(width) - cell.size(), ' ') + cell;
        out << cell << (i + 1 < cells.size() ? "  " : "\n");
    }
}

void printHostBlock(std::ostream& out, bool unixDispatcher)
{
    const std::vector<int> widths = {30, 12, 14, 8};
    row(out, {"", "recordLog", "spdlog async", "ratio"}, widths);
    for (const char* form : {"single", "batch"}) {
        for (int threads : {1, 4}) {
            const std::string base =
                std::string("host/") + form + "/" + std::to_string(threads) + "/";
            auto stats = [&](const std::string& key) {
                if (!unixDispatcherStats.count(key))
                    return unixDispatcher ? CallStats() : callStats(key);
                return unixDispatcher ? unixDispatcherStats[key] : callStats(key);
            };
            const CallStats ours = stats(base + "userlog");
            const CallStats peer = stats(base + "spdlog");
            const std::string what = std::string(form[0] == 's' ? "single entry" : "batch of 100") +
                                     ", " + std::to_string(threads) +
                                     (threads == 1 ? " thread" : " threads");
            row(out,
                {what + ", median", format("%.0f", ours.median), format("%.0f", peer.median),
                 ratio(ours.median, peer.median)},
                widths);
            row(out,
                {what + ", p99", format("%.0f", ours.p99), format("%.0f", peer.p99),
                 ratio(ours.p99, peer.p99)},
                widths);
        }
    }
}

void printHost(std::ostream& out)
{
    out << "Host side: one call on the calling thread, ns per call (clock overhead of "
        << format("%.0f", timerOverhead) << " ns subtracted);\n"
        << "a batch is one recordLog call with a list of 100 against 100 spdlog calls\n";
    out << "Qt's default event dispatcher on Linux (GLib):\n";
    printHostBlock(out, false);
    out << "Qt's own Unix event dispatcher (QT_NO_GLIB=1), which like the Windows one wakes\n"
           "the log thread once per burst of posts rather than once per post:\n";
    printHostBlock(out, true);
}

void printWriter(std::ostream& out)
{
    out << "\nWriter side, connected: entries per second (median of the rounds), posted until\n"
           "written; ratios are time per event, the median of the per-round ratios\n";
    const std::vector<int> widths = {28, 10, 12, 10, 10, 10};
    row(out, {"", "userlog", "spdlog rot.", "floor", "vs floor", "vs spdlog"}, widths);
    for (const char* form : {"single", "batch"}) {
        for (const char* dirs : {"empty", "full"}) {
            const std::string base = std::string("writer/") + form + "/" + dirs + "/";
            const double ours = secondsPerEntry(base + "userlog");
            const double spd = secondsPerEntry(base + "spdlog");
            const double floorTime = secondsPerEntry(base + "floor");
            const std::string what =
                std::string(form[0] == 's' ? "single entries" : "batches of 100") + ", " + dirs +
                " dirs";
            auto rate = [](double s) { return s <= 0 ? "n/a" : format("%.0f", 1.0 / s); };
            row(out,
                {what, rate(ours), rate(spd), rate(floorTime),
                 roundRatio(base + "userlog", base + "floor"),
                 roundRatio(base + "userlog", base + "spdlog")},
                widths);
        }
    }
    out << "  The library flushes every line; the floor above writes each file once per event.\n"
           "  Against a floor that also writes each line on its own:\n";
    for (const char* dirs : {"empty", "full"}) {
        const std::string base = std::string("writer/batch/") + dirs + "/";
        const double lines = secondsPerEntry(base + "floorlines");
        row(out,
            {std::string("batches of 100, ") + dirs + " dirs", "", "",
             lines <= 0 ? "n/a" : format("%.0f", 1.0 / lines),
             roundRatio(base + "userlog", base + "floorlines"), ""},
            widths);
    }
}

void printMemory(std::ostream& out, const Memory& memory)
{
    out << "\nMemory: bytes held per queued entry (peak RSS over " << memory.entries
        << " entries queued behind a stalled writer)\n";
    const std::vector<int> widths = {28, 10, 12, 10};
    row(out, {"", "userlog", "spdlog slot", "ratio"}, widths);
    row(out,
        {"single entries", format("%.0f", memory.singleBytesPerEntry),
         format("%.0f", memory.spdlogBytesPerSlot),
         ratio(memory.singleBytesPerEntry, memory.spdlogBytesPerSlot)},
        widths);
    row(out,
        {"batches of 100, per entry", format("%.0f", memory.batchBytesPerEntry),
         format("%.0f", memory.spdlogBytesPerSlot),
         ratio(memory.batchBytesPerEntry, memory.spdlogBytesPerSlot)},
        widths);
    // 1,048,576 slots of N bytes are N MiB.
    out << "  (spdlog allocates its queue up front whatever the load: 1,048,576 slots hold "
        << format("%.0f", memory.spdlogBytesPerSlot) << " MiB)\n";
}

} // namespace

void addCallSamples(const std::string& key, const std::vector<double>& nanoseconds)
{
    const std::lock_guard<std::mutex> lock(storeMutex);
    std::vector<double>& samples = callSamples[key];
    samples.insert(samples.end(), nanoseconds.begin(), nanoseconds.end());
}

void writeCallStats(std::ostream& out)
{
    const std::lock_guard<std::mutex> lock(storeMutex);
    for (const auto& entry : callSamples) {
        const CallStats stats = callStats(entry.first);
        out << "hostresult " << entry.first << " " << stats.median << " " << stats.p99 << "\n";
    }
}

void readCallStats(const std::string& lines)
{
    const std::lock_guard<std::mutex> lock(storeMutex);
    std::istringstream in(lines);
    std::string word;
    while (in >> word) {
        if (word != "hostresult")
            continue;
        std::string key;
        CallStats stats;
        if (in >> key >> stats.median >> stats.p99)
            unixDispatcherStats[key] = stats;
    }
}

void addWriterRound(const std::string& key, double seconds, long entries)
{
    const std::lock_guard<std::mutex> lock(storeMutex);
    Rounds& rounds = writerRounds[key];
    rounds.seconds.push_back(seconds);
    rounds.entries = entries;
}

void setTimerOverhead(double nanoseconds)
{
    timerOverhead = nanoseconds;
}

void printTable(std::ostream& out, const Memory& memory, const std::string& floorCheck)
{
    const std::lock_guard<std::mutex> lock(storeMutex);
    out << "\n";
    printHost(out);
    printWriter(out);
    out << "  floor check: " << floorCheck << "\n";
    printMemory(out, memory);
}

} // namespace results
