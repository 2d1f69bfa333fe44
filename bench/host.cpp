// What a host pays per call on its own thread: UserLog::recordLog against
// spdlog's async logger, each call timed on its own while the log thread and
// spdlog's worker write behind it. Blocks of calls alternate between the two,
// so load that drifts across the run hits both alike.
#include "bench.h"

#include <userlog/userlog.h>

#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <algorithm>
#include <thread>

namespace {

constexpr int blocks = 20;
constexpr int callsPerBlock = 2000;
// Room for a whole block, so no timed call waits for a free slot.
constexpr size_t spdlogSlots = 4096;

double nanoseconds(Clock::time_point start, Clock::time_point end)
{
    return std::chrono::duration<double, std::nano>(end - start).count();
}

// Median cost of reading the clock twice, taken off every sample.
double clockOverhead()
{
    std::vector<double> pairs(100000);
    for (double& ns : pairs) {
        const Clock::time_point start = Clock::now();
        ns = nanoseconds(start, Clock::now());
    }
    return percentile(pairs, 0.5);
}

template <typename Call> void timeBlock(std::vector<double>& samples, double overhead, Call call)
{
    for (int i = 0; i < callsPerBlock; ++i) {
        const Clock::time_point start = Clock::now();
        call();
        samples.push_back(std::max(0.0, nanoseconds(start, Clock::now()) - overhead));
    }
}

} // namespace

std::vector<Row> hostRows(const std::string& dispatcher)
{
    BenchTree tree;
    const auto pool = std::make_shared<spdlog::details::thread_pool>(spdlogSlots, 1);
    // Async calls hand the logger itself to the worker, so it must be shared.
    const auto peer = std::make_shared<spdlog::async_logger>(
        "host", std::make_shared<spdlog::sinks::basic_file_sink_mt>(tree.logPath("host.txt")), pool,
        spdlog::async_overflow_policy::block);
    peer->set_pattern("%v");
    UserLog* log = UserLog::logger();
    // The host passes strings it already holds.
    const QString block = QStringLiteral("MAIN");
    const QString time = QStringLiteral("2024-05-06 09:15:02");
    const QString message = QStringLiteral("Part count: 17, cycle done");
    const std::string time8 = time.toStdString();
    const std::string message8 = message.toStdString();

    const double overhead = clockOverhead();
    std::vector<double> ours;
    std::vector<double> theirs;
    for (int b = 0; b < blocks; ++b) {
        timeBlock(ours, overhead, [&] { log->recordLog(block, time, message, 2); });
        log->flush();
        timeBlock(theirs, overhead,
                  [&] { peer->info("-- {} -- <MAIN> <info> {}", time8, message8); });
        peer->flush();
        while (pool->queue_size() > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::vector<Row> rows;
    for (const auto& [name, fraction] : {std::pair("median", 0.5), std::pair("p99", 0.99)}) {
        const double a = percentile(ours, fraction);
        const double b = percentile(theirs, fraction);
        rows.push_back(
            {"host call, " + dispatcher + ", " + name + " vs spdlog async", a, b, a / b, "ns"});
    }
    return rows;
}
