#ifndef BENCHES_H
#define BENCHES_H

#include "results.h"

#include <string>

// How much work each benchmark does; chosen so that the whole run takes a few
// minutes on two cores.
struct BenchSizes
{
    long hostSingleCalls = 40000; // split among the host threads
    long hostBatchCalls = 2000;
    int writerRounds = 7;
    long singleEventsEmpty = 2000;
    long singleEventsFull = 600;
    long batchEventsEmpty = 100;
    long batchEventsFull = 50;
    long memoryEntries = 100000;
};

// Host side: recordLog against spdlog's async logger, 1 and 4 threads.
void registerHostBenchmarks(const BenchSizes& sizes);
double measureTimerOverhead();

// Writer side: the library end to end against spdlog's rotating sink and the floor.
void registerWriterBenchmarks(const BenchSizes& sizes);

// Runs the same events through the library and the floor in two fresh trees and
// compares the files; returns a one-line verdict.
std::string checkFloorAgainstLibrary();

// Memory: runs this program again as a probe process per form.
results::Memory measureMemory(const std::string& program, const BenchSizes& sizes);
// The probe itself: prints "bytes_per_entry <n>" for form "single" or "batch".
int runMemoryProbe(const std::string& form, long entries);

#endif // BENCHES_H
