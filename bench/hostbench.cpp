// Cost of handing entries over on the calling thread: UserLog::recordLog
// against spdlog's async logger, each call timed on its own.
#include "benches.h"
#include "benchtree.h"
#include "results.h"

#include <userlog/userlog.h>

#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/sinks/rotating_file_sink.h>

#include <QtCore/QTemporaryDir>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

// Every call is this one entry: the host passes strings it already holds.
const char* const blockText = "MAIN";
const char* const timeText = "2024-05-06 09:15:02";
const char* const messageText = "Part count: 17, cycle done";
constexpr int entryLevel = 2;
constexpr int batchSize = 100;
// Large enough that no measured call waits for room.
constexpr size_t spdlogQueueSlots = 1048576;

double nanosecondsSince(Clock::time_point start, Clock::time_point end)
{
    return std::chrono::duration<double, std::nano>(end - start).count();
}

// One async logger for the process, with its rotating sink in a directory of its own.
struct AsyncPeer
{
    QTemporaryDir dir;
    std::shared_ptr<spdlog::details::thread_pool> pool =
        std::make_shared<spdlog::details::thread_pool>(spdlogQueueSlots, 1);
    std::shared_ptr<spdlog::async_logger> logger = std::make_shared<spdlog::async_logger>(
        "host",
        std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
            (dir.path() + QStringLiteral("/host.txt")).toStdString(), 1048576, 100),
        pool, spdlog::async_overflow_policy::block);

    AsyncPeer() { logger->set_pattern("%v"); }
};

AsyncPeer& asyncPeer()
{
    static AsyncPeer peer;
    return peer;
}

// Lets the worker catch up before the next benchmark, untimed.
void waitForSpdlogQueue()
{
    AsyncPeer& peer = asyncPeer();
    peer.logger->flush();
    while (peer.pool->queue_size() > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void recordSingle(benchmark::State& state, const std::string& key)
{
    std::unique_ptr<BenchTree> tree;
    if (state.thread_index() == 0)
        tree = std::make_unique<BenchTree>();
    UserLog* log = UserLog::logger();
    const QString block = QString::fromLatin1(blockText);
    const QString time = QString::fromLatin1(timeText);
    const QString message = QString::fromLatin1(messageText);
    std::vector<double> samples;
    samples.reserve(size_t(state.max_iterations));
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        log->recordLog(block, time, message, entryLevel);
        const double ns = nanosecondsSince(start, Clock::now());
        samples.push_back(ns);
        state.SetIterationTime(ns * 1e-9);
    }
    results::addCallSamples(key, samples);
    // Every thread has posted its last call here; let the writer catch up
    // before the next benchmark, untimed.
    if (state.thread_index() == 0)
        log->flush();
}

void recordBatch(benchmark::State& state, const std::string& key)
{
    std::unique_ptr<BenchTree> tree;
    if (state.thread_index() == 0)
        tree = std::make_unique<BenchTree>();
    UserLog* log = UserLog::logger();
    QList<LogInformation> batch;
    for (int i = 0; i < batchSize; ++i)
        batch.append({QString::fromLatin1(timeText), QString::fromLatin1(blockText),
                      QString::fromLatin1(messageText), entryLevel});
    std::vector<double> samples;
    samples.reserve(size_t(state.max_iterations));
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        log->recordLog(batch);
        const double ns = nanosecondsSince(start, Clock::now());
        samples.push_back(ns);
        state.SetIterationTime(ns * 1e-9);
    }
    results::addCallSamples(key, samples);
    if (state.thread_index() == 0)
        log->flush();
}

// spdlog's async call formats the message into its queue slot on the calling
// thread; the pattern and the file write happen on its worker.
void spdlogSingle(benchmark::State& state, const std::string& key)
{
    const auto logger = asyncPeer().logger;
    const std::string block = blockText;
    const std::string time = timeText;
    const std::string message = messageText;
    std::vector<double> samples;
    samples.reserve(size_t(state.max_iterations));
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        logger->info("{} -- <{}> <info> {}", time, block, message);
        const double ns = nanosecondsSince(start, Clock::now());
        samples.push_back(ns);
        state.SetIterationTime(ns * 1e-9);
    }
    results::addCallSamples(key, samples);
    if (state.thread_index() == 0)
        waitForSpdlogQueue();
}

void spdlogBatch(benchmark::State& state, const std::string& key)
{
    const auto logger = asyncPeer().logger;
    const std::string block = blockText;
    const std::string time = timeText;
    const std::string message = messageText;
    std::vector<double> samples;
    samples.reserve(size_t(state.max_iterations));
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        for (int i = 0; i < batchSize; ++i)
            logger->info("{} -- <{}> <info> {}", time, block, message);
        const double ns = nanosecondsSince(start, Clock::now());
        samples.push_back(ns);
        state.SetIterationTime(ns * 1e-9);
    }
    results::addCallSamples(key, samples);
    if (state.thread_index() == 0)
        waitForSpdlogQueue();
}

} // namespace

double measureTimerOverhead()
{
    std::vector<double> pairs(200000);
    for (double& ns : pairs) {
        const Clock::time_point start = Clock::now();
        ns = nanosecondsSince(start, Clock::now());
    }
    std::nth_element(pairs.begin(), pairs.begin() + long(pairs.size() / 2), pairs.end());
    return pairs[pairs.size() / 2];
}

void registerHostBenchmarks(const BenchSizes& sizes)
{
    asyncPeer(); // allocates its queue up front, outside every measurement
    for (int threads : {1, 4}) {
        const std::string t = std::to_string(threads);
        const long single = sizes.hostSingleCalls / threads;
        const long batches = sizes.hostBatchCalls / threads;
        const auto add = [threads](const std::string& name, auto function, long iterations) {
            benchmark::RegisterBenchmark(name.c_str(), function, name)
                ->Iterations(iterations)
                ->Threads(threads)
                ->UseManualTime()
                ->Unit(benchmark::kNanosecond);
        };
        add("host/single/" + t + "/userlog", recordSingle, single);
        add("host/single/" + t + "/spdlog", spdlogSingle, single);
        add("host/batch/" + t + "/userlog", recordBatch, batches);
        add("host/batch/" + t + "/spdlog", spdlogBatch, batches);
    }
}
