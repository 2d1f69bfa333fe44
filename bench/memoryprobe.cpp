// Bytes held per queued entry: the writer is held up on its first event, the
// host floods entries behind it, and the growth of the resident set is divided
// by the number of entries waiting.
#include "benches.h"
#include "benchtree.h"

#include <userlog/userlog.h>

#include <spdlog/async.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QProcess>
#include <QtCore/QSemaphore>
#include <QtCore/QThread>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <iostream>

namespace {

// The writer reports an empty message from its own thread; the first such
// report after arming parks the writer there until released.
std::atomic<bool> stallArmed{false};
QSemaphore writerStalled;
QSemaphore releaseWriter;

void stallingHandler(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type != QtDebugMsg) {
        std::fprintf(stderr, "%s\n", qPrintable(message));
        return;
    }
    if (message == QLatin1String("no log information to write!") && stallArmed.exchange(false)) {
        writerStalled.release();
        releaseWriter.acquire();
    }
}

// Peak resident set from here on (Linux: writing 5 resets VmHWM).
void resetPeak()
{
    std::ofstream("/proc/self/clear_refs") << "5";
}

} // namespace

int runMemoryProbe(const std::string& form, long entries)
{
    BenchTree tree;
    qInstallMessageHandler(stallingHandler);
    UserLog* log = UserLog::logger();
    log->connectedWithController(true);
    // Warm up the writer and the allocator before measuring.
    for (int i = 0; i < 1000; ++i)
        log->recordLog(QStringLiteral("MAIN"), QStringLiteral("2024-05-06 09:15:02"),
                       QStringLiteral("warm up %1").arg(i), 2);
    log->flush();

    stallArmed = true;
    log->recordLog(QString(), QString(), QString(), 2);
    writerStalled.acquire();
    resetPeak();
    const std::int64_t before = currentRssBytes();

    // What a host typically passes: a shared block name, a fresh time text and
    // a fresh message per entry.
    const QString block = QStringLiteral("MAIN");
    if (form == "single") {
        for (long i = 0; i < entries; ++i)
            log->recordLog(
                block, QStringLiteral("2024-05-06 09:15:%1").arg(i % 60, 2, 10, QLatin1Char('0')),
                QStringLiteral("Part count: %1, cycle done").arg(i), 2);
    } else {
        for (long b = 0; b < entries / 100; ++b) {
            QList<LogInformation> batch;
            for (long i = b * 100; i < (b + 1) * 100; ++i)
                batch.append(
                    {QStringLiteral("2024-05-06 09:15:%1").arg(i % 60, 2, 10, QLatin1Char('0')),
                     block, QStringLiteral("Part count: %1, cycle done").arg(i), 2});
            log->recordLog(batch);
        }
    }
    const std::int64_t peak = std::max(peakRssBytes(), currentRssBytes());
    releaseWriter.release();
    log->flush();
    std::cout << "bytes_per_entry " << double(peak - before) / double(entries) << std::endl;
    return 0;
}

results::Memory measureMemory(const std::string& program, const BenchSizes& sizes)
{
    results::Memory memory;
    memory.entries = sizes.memoryEntries;
    memory.spdlogBytesPerSlot = double(sizeof(spdlog::details::async_msg));
    for (const char* form : {"single", "batch"}) {
        QProcess probe;
        probe.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        probe.start(QString::fromStdString(program),
                    {QStringLiteral("--memory-probe"), QString::fromLatin1(form),
                     QString::number(sizes.memoryEntries)});
        if (!probe.waitForFinished(300000))
            continue;
        const QByteArray out = probe.readAllStandardOutput();
        const int at = out.indexOf("bytes_per_entry ");
        if (at < 0)
            continue;
        const double bytes = out.mid(at + 16).trimmed().toDouble();
        (form[0] == 's' ? memory.singleBytesPerEntry : memory.batchBytesPerEntry) = bytes;
    }
    return memory;
}
