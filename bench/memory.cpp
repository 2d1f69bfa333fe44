// Bytes held per queued entry: the log thread is parked inside its first
// event, the host queues entries behind it, and the growth of the peak resident
// set is divided by the number of entries waiting.
#include "bench.h"

#include <userlog/userlog.h>

#include <QtCore/QSemaphore>

#include <atomic>
#include <fstream>
#include <iostream>

namespace {

constexpr long entries = 100000;

// An entry without a message makes the writer report it from its own thread;
// the first such report after arming parks the writer there until released.
std::atomic<bool> armed{false};
QSemaphore parked;
QSemaphore release;

void parkingHandler(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type != QtDebugMsg)
        std::cerr << qPrintable(message) << std::endl;
    else if (message == QLatin1String("no log information to write!") && armed.exchange(false)) {
        parked.release();
        release.acquire();
    }
}

long statusKilobytes(const std::string& field)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(field + ":", 0) == 0)
            return std::stol(line.substr(field.size() + 1));
    }
    return -1;
}

// What a host typically passes: a shared block name, a fresh time and message.
LogInformation entry(long i)
{
    return {QStringLiteral("2024-05-06 09:15:%1").arg(i % 60, 2, 10, QLatin1Char('0')),
            QStringLiteral("MAIN"), QStringLiteral("Part count: %1, cycle done").arg(i), 2};
}

} // namespace

int memoryProbe(bool batch)
{
    BenchTree tree;
    qInstallMessageHandler(parkingHandler);
    UserLog* log = UserLog::logger();
    log->connectedWithController(true);
    for (long i = 0; i < 1000; ++i) // the writer's and the allocator's warm-up
        log->recordLog(entry(i).block, entry(i).time, entry(i).logInfo, 2);
    log->flush();

    armed = true;
    log->recordLog(QString(), QString(), QString(), 2);
    parked.acquire();
    std::ofstream("/proc/self/clear_refs") << "5"; // resets the peak (VmHWM)
    const long before = statusKilobytes("VmRSS");
    for (long b = 0; b < entries / long(batchSize); ++b) {
        QList<LogInformation> list;
        for (long i = b * long(batchSize); i < (b + 1) * long(batchSize); ++i)
            list.append(entry(i));
        if (batch) {
            log->recordLog(list);
            continue;
        }
        for (const LogInformation& e : list)
            log->recordLog(e.block, e.time, e.logInfo, e.level);
    }
    const long peak = std::max(statusKilobytes("VmHWM"), statusKilobytes("VmRSS"));
    release.release();
    log->flush();
    std::cout << double(peak - before) * 1024 / double(entries) << std::endl;
    return 0;
}
