// Time until entries are on disk, per entry: the library (recordLog, then
// flush()) against the floor and against spdlog's rotating file sinks. Every
// run starts from a fresh tree; a round runs each workload through each of
// them by turns, the library first in even rounds and last in odd ones, so
// that neither side always inherits the other's warm caches or a neighbour's
// burst of load. A ratio is the median of the per-round ratios, after one
// warm-up round that counts for nothing.
#include "bench.h"

#include <userlog/userlog.h>

#include <spdlog/logger.h>
#include <spdlog/sinks/rotating_file_sink.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>

#include <array>
#include <fstream>

namespace {

constexpr int rounds = 11;

struct Workload
{
    const char* name;
    bool batch;
    bool full; // the directories start filled up to the retention limits
    size_t entries;
};

// Batches in empty directories pass 1 MiB, so the floor check covers a rollover.
const Workload workloads[] = {
    {"single entries, empty dirs", false, false, 2000},
    {"single entries, full dirs", false, true, 600},
    {"batches of 100, empty dirs", true, false, 20000},
    {"batches of 100, full dirs", true, true, 5000},
};

enum Impl
{
    Library,
    Floor,
    FloorPerLine, // the library flushes every line; this floor writes each on its own too
    Spdlog,
    ImplCount
};
const char* const implNames[] = {"userlog", "floor", "floor writing per line", "spdlog"};

// 99 user-log files and 500 print files: the most that no event trims.
void prefill(const BenchTree& tree)
{
    const std::string user = tree.logPath("online/user_log_file_");
    const std::string print = tree.logPath("useronline/user_print_file_");
    const std::string text(64, 'x');
    for (int i = 0; i < 500; ++i) {
        if (i < 99)
            std::ofstream(user + std::to_string(i) + ".txt") << text;
        std::ofstream(print + std::to_string(i) + "_2024-01-01.txt") << text;
    }
}

// Single entries are print entries, so every event writes both files; batches
// cycle through levels 2 to 6.
std::vector<Entry> makeEntries(const Workload& w)
{
    std::vector<Entry> entries;
    for (int i = 0; i < int(w.entries); ++i) {
        char time[32];
        std::snprintf(time, sizeof time, "2024-05-06 %02d:%02d:%02d", i / 3600 % 24, i / 60 % 60,
                      i % 60);
        const std::string message = "Part count: " + std::to_string(i) + ", cycle done";
        entries.push_back({time, message, w.batch ? 2 + i % 5 : 6});
    }
    return entries;
}

double runLibrary(const std::vector<Entry>& entries, bool batch)
{
    // The host holds its strings before the clock starts.
    QList<QList<LogInformation>> events;
    for (size_t i = 0; i < entries.size(); ++i) {
        if (i % (batch ? batchSize : 1) == 0)
            events.append(QList<LogInformation>());
        events.last().append({QString::fromStdString(entries[i].time), QStringLiteral("MAIN"),
                              QString::fromStdString(entries[i].message), entries[i].level});
    }
    UserLog* log = UserLog::logger();
    const Clock::time_point start = Clock::now();
    for (const QList<LogInformation>& e : events) {
        if (batch)
            log->recordLog(e);
        else
            log->recordLog(e[0].block, e[0].time, e[0].logInfo, e[0].level);
    }
    log->flush();
    return secondsSince(start);
}

double runFloor(const std::vector<Entry>& entries, bool batch, bool writePerLine)
{
    const size_t step = batch ? batchSize : 1;
    const Clock::time_point start = Clock::now();
    for (size_t i = 0; i < entries.size(); i += step)
        floorEvent(&entries[i], std::min(step, entries.size() - i), batch, writePerLine);
    return secondsSince(start);
}

// The same lines into two rotating sinks of 1 MiB files, flushed at every line
// as the library's are.
double runSpdlog(const BenchTree& tree, const std::vector<Entry>& entries, bool batch)
{
    using Sink = spdlog::sinks::rotating_file_sink_st;
    spdlog::logger user("user",
                        std::make_shared<Sink>(tree.logPath("spdlog/user.txt"), 1 << 20, 100));
    spdlog::logger print("print",
                         std::make_shared<Sink>(tree.logPath("spdlog/print.txt"), 1 << 20, 500));
    for (spdlog::logger* logger : {&user, &print}) {
        logger->set_pattern("%v");
        logger->flush_on(spdlog::level::trace);
    }
    const Clock::time_point start = Clock::now();
    for (const Entry& e : entries) {
        const char* tag = levelTag(e.level, batch);
        user.info("-- {} -- <MAIN> <{}> {}", e.time, tag, e.message);
        if (isPrintEntry(e.level, batch))
            print.info("-- {} -- <MAIN> <{}> {}", e.time, tag, e.message);
    }
    return secondsSince(start);
}

// Seconds per entry for one run in a fresh tree; *files gets what the tree holds after.
double run(const Workload& w, int impl, LogFiles* files)
{
    BenchTree tree;
    for (const char* dir : {"online", "useronline"})
        QDir().mkpath(QString::fromStdString(tree.logPath(dir)));
    if (w.full)
        prefill(tree);
    const std::vector<Entry> entries = makeEntries(w);
    double seconds = 0;
    if (impl == Library)
        seconds = runLibrary(entries, w.batch);
    else if (impl == Spdlog)
        seconds = runSpdlog(tree, entries, w.batch);
    else
        seconds = runFloor(entries, w.batch, impl == FloorPerLine);
    *files = tree.logFiles();
    return seconds / double(entries.size());
}

std::string firstDifference(const LogFiles& library, const LogFiles& floor)
{
    for (const auto& [path, bytes] : library) {
        const auto it = floor.find(path);
        if (it == floor.end())
            return "the floor did not write " + path.toStdString();
        if (it->second != bytes)
            return "the floor wrote other bytes to " + path.toStdString();
    }
    return "the floor wrote files the library did not";
}

Row compare(const Workload& w, int impl, const std::vector<double>& ours,
            const std::vector<double>& peer)
{
    std::vector<double> ratios;
    for (size_t r = 0; r < peer.size(); ++r)
        ratios.push_back(ours[r] / peer[r]);
    return {std::string("writer, ") + w.name + " vs " + implNames[impl],
            percentile(ours, 0.5) * 1e6, percentile(peer, 0.5) * 1e6, percentile(ratios, 0.5),
            "us"};
}

} // namespace

std::vector<Row> writerRows(std::string* floorCheck, bool* floorMatches)
{
    const size_t count = std::size(workloads);
    std::vector<std::array<std::vector<double>, ImplCount>> seconds(count);
    int compared = 0;
    *floorMatches = true;
    for (int round = -1; round < rounds; ++round) {
        for (size_t w = 0; w < count; ++w) {
            std::array<LogFiles, ImplCount> produced;
            for (int turn = 0; turn < ImplCount; ++turn) {
                const int impl = round % 2 == 0 ? turn : ImplCount - 1 - turn;
                if (impl == FloorPerLine && !workloads[w].batch)
                    continue; // one line per file: the floor itself
                const double elapsed = run(workloads[w], impl, &produced[impl]);
                if (round >= 0)
                    seconds[w][impl].push_back(elapsed);
            }
            for (const int impl : {Floor, FloorPerLine}) {
                if (impl == FloorPerLine && !workloads[w].batch)
                    continue;
                ++compared;
                if (produced[impl] != produced[Library] && *floorMatches) {
                    *floorMatches = false;
                    *floorCheck = std::string("MISMATCH in ") + workloads[w].name + ", " +
                                  implNames[impl] + ": " +
                                  firstDifference(produced[Library], produced[impl]);
                }
            }
        }
    }
    if (*floorMatches)
        *floorCheck = "the floor wrote the same files, byte for byte, as the library in all " +
                      std::to_string(compared) + " floor runs";
    std::vector<Row> rows;
    for (size_t w = 0; w < count; ++w) {
        for (int impl = Floor; impl < ImplCount; ++impl) {
            if (!seconds[w][impl].empty())
                rows.push_back(compare(workloads[w], impl, seconds[w][Library], seconds[w][impl]));
        }
    }
    return rows;
}

// The single-entry workload alone, in the library (after a connect, as the timed
// runs) or in the floor: what --syscalls runs under strace.
int syscallWorkload(bool floor, int entries)
{
    BenchTree tree;
    for (const char* dir : {"online", "useronline"})
        QDir().mkpath(QString::fromStdString(tree.logPath(dir)));
    const std::vector<Entry> workload = makeEntries({"", false, false, size_t(entries)});
    if (floor) {
        runFloor(workload, false, false);
    } else {
        UserLog::logger()->connectedWithController(true);
        runLibrary(workload, false);
    }
    return 0;
}

// System calls per single entry, of every thread: this program under strace -c
// with n and 2n entries, the difference over n, so that start-up and exit cancel
// out. Counts, not times: the same on a busy machine. -1 when strace cannot run.
double systemCallsPerEntry(bool floor)
{
    const auto count = [floor](int entries) {
        QTemporaryDir dir;
        const QString summary = dir.filePath(QStringLiteral("strace.txt"));
        QProcess strace;
        strace.start(QStringLiteral("strace"),
                     {QStringLiteral("-f"), QStringLiteral("-c"), QStringLiteral("-o"), summary,
                      QCoreApplication::applicationFilePath(), QStringLiteral("--syscalls"),
                      floor ? QStringLiteral("floor") : QStringLiteral("userlog"),
                      QString::number(entries)});
        if (!strace.waitForFinished(300000) || strace.exitCode() != 0)
            return -1.0;
        QFile file(summary);
        file.open(QIODevice::ReadOnly);
        // The last line: "100.00  <seconds>  <usecs/call>  <calls>  [<errors>] total".
        const QRegularExpression total(
            QStringLiteral("^\\S+\\s+\\S+\\s+\\S*\\s+(\\d+)\\s+(?:\\d+\\s+)?total$"),
            QRegularExpression::MultilineOption);
        const QRegularExpressionMatch match = total.match(QString::fromUtf8(file.readAll()));
        return match.hasMatch() ? match.captured(1).toDouble() : -1.0;
    };
    constexpr int n = 1000;
    const double once = count(n), twice = count(2 * n);
    return once < 0 || twice < 0 ? -1 : (twice - once) / n;
}
