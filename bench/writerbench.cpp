// Entries written end to end, from the first post until the last line is in
// its file: the library against spdlog's rotating sink and the floor.
#include "benches.h"
#include "benchtree.h"
#include "floorlog.h"
#include "results.h"

#include <userlog/userlog.h>

#include <benchmark/benchmark.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/rotating_file_sink.h>

#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QMap>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr int batchSize = 100;

enum class Form
{
    Single,
    Batch
};

struct Workload
{
    Form form;
    DirState dirs;
    long events;
};

// Entry i of a run. Single entries are print entries (level 6), so every event
// writes both files; batches cycle through levels 2 to 6, a fifth of them print lines.
floorlog::Entry makeEntry(long i, Form form)
{
    char time[32];
    std::snprintf(time, sizeof time, "2024-05-06 %02ld:%02ld:%02ld", (i / 3600) % 24, (i / 60) % 60,
                  i % 60);
    const int level = form == Form::Single ? 6 : int(2 + i % 5);
    return {time, "MAIN", "Part count: " + std::to_string(i) + ", cycle done", level};
}

std::vector<floorlog::Entry> makeEntries(const Workload& w)
{
    const long count = w.form == Form::Single ? w.events : w.events * batchSize;
    std::vector<floorlog::Entry> entries;
    entries.reserve(size_t(count));
    for (long i = 0; i < count; ++i)
        entries.push_back(makeEntry(i, w.form));
    return entries;
}

LogInformation toLogInformation(const floorlog::Entry& e)
{
    return {QString::fromStdString(e.time), QString::fromStdString(e.block),
            QString::fromStdString(e.message), e.level};
}

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void record(benchmark::State& state, const std::string& key, double seconds, size_t entries)
{
    state.SetIterationTime(seconds);
    state.counters["entries/s"] = double(entries) / seconds;
    results::addWriterRound(key, seconds, long(entries));
}

void libraryRun(benchmark::State& state, Workload w, const std::string& key)
{
    for (auto _ : state) {
        BenchTree tree;
        prepareOnlineDirs(tree, w.dirs);
        const std::vector<floorlog::Entry> entries = makeEntries(w);
        UserLog* log = UserLog::logger();
        // Built before the clock starts: the host owns its strings.
        std::vector<LogInformation> singles;
        std::vector<QList<LogInformation>> batches;
        for (size_t i = 0; i < entries.size(); ++i) {
            if (w.form == Form::Single) {
                singles.push_back(toLogInformation(entries[i]));
                continue;
            }
            if (i % batchSize == 0)
                batches.emplace_back();
            batches.back().append(toLogInformation(entries[i]));
        }
        const Clock::time_point start = Clock::now();
        for (const LogInformation& e : singles)
            log->recordLog(e.block, e.time, e.logInfo, e.level);
        for (const QList<LogInformation>& batch : batches)
            log->recordLog(batch);
        log->flush();
        record(state, key, secondsSince(start), entries.size());
    }
}

const char* spdlogTag(int level, Form form)
{
    switch (level) {
    case 2:
        return "info";
    case 3:
        return "warn";
    case 4:
        return "erro";
    case 5:
        return form == Form::Batch ? "printinfo" : "log";
    default:
        return "log";
    }
}

// The same lines into two rotating sinks (1 MiB files), flushed at every line.
void spdlogRun(benchmark::State& state, Workload w, const std::string& key)
{
    for (auto _ : state) {
        BenchTree tree;
        prepareOnlineDirs(tree, w.dirs);
        const std::vector<floorlog::Entry> entries = makeEntries(w);
        const std::string dir = tree.logDir(QStringLiteral("spdlog")).toStdString();
        spdlog::logger user("user", std::make_shared<spdlog::sinks::rotating_file_sink_st>(
                                        dir + "/user_log.txt", 1048576, 100));
        spdlog::logger print("print", std::make_shared<spdlog::sinks::rotating_file_sink_st>(
                                          dir + "/print.txt", 1048576, 500));
        for (spdlog::logger* logger : {&user, &print}) {
            logger->set_pattern("%v");
            logger->flush_on(spdlog::level::trace);
        }
        const int printLevel = w.form == Form::Single ? 6 : 5;
        const Clock::time_point start = Clock::now();
        for (const floorlog::Entry& e : entries) {
            const char* tag = spdlogTag(e.level, w.form);
            user.info("-- {} -- <{}> <{}> {}", e.time, e.block, tag, e.message);
            if (e.level == printLevel)
                print.info("-- {} -- <{}> <{}> {}", e.time, e.block, tag, e.message);
        }
        record(state, key, secondsSince(start), entries.size());
    }
}

void floorRun(benchmark::State& state, Workload w, const std::string& key, bool writePerLine)
{
    for (auto _ : state) {
        BenchTree tree;
        prepareOnlineDirs(tree, w.dirs);
        const std::vector<floorlog::Entry> entries = makeEntries(w);
        std::vector<std::vector<floorlog::Entry>> batches;
        if (w.form == Form::Batch) {
            for (size_t i = 0; i < entries.size(); i += batchSize)
                batches.emplace_back(entries.begin() + long(i),
                                     entries.begin() +
                                         long(std::min(entries.size(), i + batchSize)));
        }
        const Clock::time_point start = Clock::now();
        if (w.form == Form::Single) {
            for (const floorlog::Entry& e : entries)
                floorlog::writeSingle(e);
        } else {
            for (const std::vector<floorlog::Entry>& batch : batches)
                floorlog::writeBatch(batch, writePerLine);
        }
        record(state, key, secondsSince(start), entries.size());
    }
}

void floorOneWriteRun(benchmark::State& state, Workload w, const std::string& key)
{
    floorRun(state, w, key, false);
}

// Batches only: the floor again, with one write per line as the library's
// per-line flush makes it.
void floorWritePerLineRun(benchmark::State& state, Workload w, const std::string& key)
{
    floorRun(state, w, key, true);
}

using Runner = void (*)(benchmark::State&, Workload, const std::string&);

QMap<QString, QByteArray> filesUnder(const QString& root)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(root, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            files.insert(path.mid(root.size()), file.readAll());
    }
    return files;
}

// Singles, batches, singles again, with every level, across a rollover of both
// files and a retention step in both directories.
QMap<QString, QByteArray> runCheckWorkload(bool library)
{
    BenchTree tree;
    prepareOnlineDirs(tree, DirState::Full, 1048576 - 8000, 500);
    std::vector<std::pair<Form, std::vector<floorlog::Entry>>> events;
    long n = 0;
    auto addSingles = [&](int count) {
        for (int i = 0; i < count; ++i, ++n) {
            floorlog::Entry e = makeEntry(n, Form::Single);
            e.level = int(n % 9) - 1;
            events.push_back({Form::Single, {e}});
        }
    };
    addSingles(150);
    for (int b = 0; b < 20; ++b) {
        std::vector<floorlog::Entry> batch;
        for (int i = 0; i < batchSize; ++i, ++n) {
            floorlog::Entry e = makeEntry(n, Form::Batch);
            e.level = int(n % 9) - 1;
            batch.push_back(e);
        }
        events.push_back({Form::Batch, batch});
    }
    addSingles(150);

    UserLog* log = UserLog::logger();
    for (const auto& event : events) {
        if (!library) {
            if (event.first == Form::Single)
                floorlog::writeSingle(event.second.front());
            else
                floorlog::writeBatch(event.second);
        } else if (event.first == Form::Single) {
            const LogInformation e = toLogInformation(event.second.front());
            log->recordLog(e.block, e.time, e.logInfo, e.level);
        } else {
            QList<LogInformation> batch;
            for (const floorlog::Entry& e : event.second)
                batch.append(toLogInformation(e));
            log->recordLog(batch);
        }
    }
    log->flush();
    return filesUnder(tree.root() + QStringLiteral("/log"));
}

} // namespace

std::string checkFloorAgainstLibrary()
{
    const QMap<QString, QByteArray> library = runCheckWorkload(true);
    const QMap<QString, QByteArray> floorFiles = runCheckWorkload(false);
    if (library == floorFiles)
        return "the floor wrote the same " + std::to_string(library.size()) +
               " files, byte for byte, as the library (rollover and retention included)";
    for (auto it = library.begin(); it != library.end(); ++it) {
        if (!floorFiles.contains(it.key()))
            return "MISMATCH: only the library wrote " + it.key().toStdString();
        if (floorFiles.value(it.key()) != it.value())
            return "MISMATCH: contents differ in " + it.key().toStdString();
    }
    return "MISMATCH: the floor wrote files the library did not";
}

void registerWriterBenchmarks(const BenchSizes& sizes)
{
    const std::vector<std::pair<std::string, Workload>> workloads = {
        {"single/empty", {Form::Single, DirState::Empty, sizes.singleEventsEmpty}},
        {"single/full", {Form::Single, DirState::Full, sizes.singleEventsFull}},
        {"batch/empty", {Form::Batch, DirState::Empty, sizes.batchEventsEmpty}},
        {"batch/full", {Form::Batch, DirState::Full, sizes.batchEventsFull}},
    };
    const std::vector<std::pair<std::string, Runner>> runners = {
        {"userlog", libraryRun},
        {"spdlog", spdlogRun},
        {"floor", floorOneWriteRun},
        {"floorlines", floorWritePerLineRun}};
    // Rounds interleave the three, so drift on a shared machine hits them alike.
    for (int round = 1; round <= sizes.writerRounds; ++round) {
        for (const auto& workload : workloads) {
            for (const auto& runner : runners) {
                if (runner.first == "floorlines" && workload.second.form == Form::Single)
                    continue; // one line per file: the same as the floor
                const std::string key = "writer/" + workload.first + "/" + runner.first;
                const std::string name = key + "/round:" + std::to_string(round);
                benchmark::RegisterBenchmark(name.c_str(), runner.second, workload.second, key)
                    ->Iterations(1)
                    ->UseManualTime()
                    ->Unit(benchmark::kMillisecond);
            }
        }
    }
}
