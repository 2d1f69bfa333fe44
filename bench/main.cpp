// Runs every benchmark in one process, side by side, and prints one table of
// ratios at the end. Start it in a scratch directory: it makes its own trees
// under the temporary directory and writes nothing elsewhere.
#include "benches.h"
#include "benchtree.h"
#include "results.h"

#include <userlog/userlog.h>

#include <benchmark/benchmark.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QProcess>

#include <cstring>
#include <iostream>

namespace {

// The writer's own debug messages ("make log dir succeded!") would flood the output.
void quietHandler(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type != QtDebugMsg)
        std::cerr << qPrintable(message) << std::endl;
}

// The log thread's event dispatcher is chosen when the thread starts, from
// QT_NO_GLIB, so the other dispatcher needs a process of its own.
int runHostProbe(int argc, char** argv, const BenchSizes& sizes)
{
    argv[1] = argv[0];
    --argc;
    ++argv;
    benchmark::Initialize(&argc, argv);
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(quietHandler);
    BenchTree startTree;
    UserLog::logger()->connectedWithController(true);
    UserLog::logger()->flush();
    results::setTimerOverhead(measureTimerOverhead());
    registerHostBenchmarks(sizes);
    // Google Benchmark's own lines go to the console; the results to the parent.
    benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
    reporter.SetOutputStream(&std::cerr);
    reporter.SetErrorStream(&std::cerr);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    results::writeCallStats(std::cout);
    return 0;
}

std::string runHostProbeProcess(const std::string& program)
{
    QProcess probe;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_NO_GLIB"), QStringLiteral("1"));
    probe.setProcessEnvironment(env);
    probe.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    probe.start(QString::fromStdString(program), {QStringLiteral("--host-probe")});
    if (!probe.waitForFinished(600000))
        return std::string();
    return probe.readAllStandardOutput().toStdString();
}

} // namespace

int main(int argc, char** argv)
{
    BenchSizes sizes;
    if (argc >= 4 && std::strcmp(argv[1], "--memory-probe") == 0) {
        QCoreApplication app(argc, argv);
        return runMemoryProbe(argv[2], std::atol(argv[3]));
    }
    if (argc >= 2 && std::strcmp(argv[1], "--host-probe") == 0)
        return runHostProbe(argc, argv, sizes);
    const std::string program = argv[0];
    // --benchmarks-only: skip the floor check and the memory probes, e.g. to
    // profile one benchmark picked with --benchmark_filter.
    bool benchmarksOnly = false;
    if (argc >= 2 && std::strcmp(argv[1], "--benchmarks-only") == 0) {
        benchmarksOnly = true;
        argv[1] = argv[0];
        --argc;
        ++argv;
    }
    benchmark::Initialize(&argc, argv);
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(quietHandler);

    // The start-up banner and the connected banner go into a tree of their own;
    // every benchmark then works in a fresh tree.
    BenchTree startTree;
    if (!startTree.isValid()) {
        std::cerr << "cannot make a temporary tree" << std::endl;
        return 1;
    }
    UserLog::logger()->connectedWithController(true);
    UserLog::logger()->flush();

    std::string floorCheck = "skipped";
    if (!benchmarksOnly) {
        std::cout << "checking the floor against the library..." << std::endl;
        floorCheck = checkFloorAgainstLibrary();
        std::cout << floorCheck << std::endl;
    }

    results::setTimerOverhead(measureTimerOverhead());
    registerHostBenchmarks(sizes);
    registerWriterBenchmarks(sizes);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    results::Memory memory;
    if (!benchmarksOnly) {
        std::cout << "host side again with QT_NO_GLIB=1, in a probe process..." << std::endl;
        results::readCallStats(runHostProbeProcess(program));
        std::cout << "measuring memory in probe processes..." << std::endl;
        memory = measureMemory(program, sizes);
    }
    results::printTable(std::cout, memory, floorCheck);
    return floorCheck.rfind("MISMATCH", 0) == 0 ? 1 : 0;
}
