// Runs every comparison side by side and prints one table of ratios. What needs
// a fresh process (the other event dispatcher, memory) runs in children of its
// own. Start it in a scratch directory: every tree it makes lands under the
// temporary directory.
#include "bench.h"

#include <userlog/userlog.h>

#include <spdlog/async.h>

#include <QtCore/QAbstractEventDispatcher>
#include <QtCore/QCoreApplication>
#include <QtCore/QDirIterator>
#include <QtCore/QProcess>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>

BenchTree::BenchTree() : _previous(QDir::currentPath())
{
    const QString bin = _dir.path() + QStringLiteral("/app/bin");
    if (!_dir.isValid() || !QDir().mkpath(bin) || !QDir::setCurrent(bin))
        qFatal("cannot make a tree under %s", qPrintable(QDir::tempPath()));
}

BenchTree::~BenchTree()
{
    QDir::setCurrent(_previous);
}

std::string BenchTree::logPath(const char* path) const
{
    return (_dir.path() + QStringLiteral("/log/")).toStdString() + path;
}

LogFiles BenchTree::logFiles() const
{
    LogFiles files;
    const QString root = _dir.path() + QStringLiteral("/log/");
    QDirIterator it(root, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile file(it.next());
        if (file.open(QIODevice::ReadOnly))
            files[file.fileName().mid(root.size())] = file.readAll();
    }
    return files;
}

double percentile(std::vector<double> values, double fraction)
{
    if (values.empty())
        return std::nan("");
    const size_t rank = std::min(values.size() - 1, size_t(fraction * double(values.size())));
    std::nth_element(values.begin(), values.begin() + long(rank), values.end());
    return values[rank];
}

namespace {

// The writer's debug messages ("make log dir succeded!") would flood the output.
void quietHandler(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type != QtDebugMsg)
        std::cerr << qPrintable(message) << std::endl;
}

// This program again with the given arguments: its output, empty when it failed.
QString runChild(const QStringList& arguments, bool noGlib = false)
{
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (noGlib)
        environment.insert(QStringLiteral("QT_NO_GLIB"), QStringLiteral("1"));
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    child.start(QCoreApplication::applicationFilePath(), arguments);
    const bool ok = child.waitForFinished(600000) && child.exitStatus() == QProcess::NormalExit &&
                    child.exitCode() == 0;
    return ok ? QString::fromUtf8(child.readAllStandardOutput()) : QString();
}

// Rows cross from a child as tab-separated lines.
void writeRows(const std::vector<Row>& rows)
{
    for (const Row& r : rows)
        std::cout << r.what << '\t' << r.ours << '\t' << r.peer << '\t' << r.ratio << '\t' << r.unit
                  << '\n';
}

std::vector<Row> readRows(const QString& text)
{
    std::vector<Row> rows;
    for (const QString& line : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QStringList f = line.split(QLatin1Char('\t'));
        if (f.size() == 5)
            rows.push_back({f[0].toStdString(), f[1].toDouble(), f[2].toDouble(), f[3].toDouble(),
                            f[4].toStdString()});
    }
    return rows;
}

// spdlog's queue holds fixed slots, allocated up front whatever the load.
Row memoryRow(bool batch)
{
    bool ok = false;
    const QString form = batch ? QStringLiteral("batch") : QStringLiteral("single");
    double ours = runChild({QStringLiteral("--memory"), form}).trimmed().toDouble(&ok);
    ours = ok ? ours : std::nan("");
    const double slot = sizeof(spdlog::details::async_msg);
    return {"memory per queued entry, " + form.toStdString() + " vs spdlog slot", ours, slot,
            ours / slot, "B"};
}

void printTable(const std::vector<Row>& rows)
{
    std::printf(
        "\nMeasured with Qt %s.\n"
        "Cost in userlog beside the same cost in a peer; ratio = userlog / peer (for the\n"
        "writer, the median of the per-round ratios). Host: one call on the calling\n"
        "thread. Writer: per entry, until on disk. Memory: per entry waiting in the queue.\n"
        "%-62s %13s %13s %8s\n",
        qVersion(), "", "userlog", "peer", "ratio");
    for (const Row& r : rows)
        std::printf("%-62s %10.2f %-2s %10.2f %-2s %7.2fx\n", r.what.c_str(), r.ours,
                    r.unit.c_str(), r.peer, r.unit.c_str(), r.ratio);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QString mode = app.arguments().value(1);
    if (mode == QLatin1String("--memory"))
        return memoryProbe(app.arguments().value(2) == QLatin1String("batch"));
    qInstallMessageHandler(quietHandler);
    if (mode == QLatin1String("--syscalls"))
        return syscallWorkload(app.arguments().value(2) == QLatin1String("floor"),
                               app.arguments().value(3).toInt());
    // The start-up and connected banners go into a tree of their own.
    BenchTree startTree;
    UserLog::logger()->connectedWithController(true);
    UserLog::logger()->flush();
    // The log thread chooses its dispatcher the way this thread did.
    const std::string dispatcher = QAbstractEventDispatcher::instance()->metaObject()->className();
    if (mode == QLatin1String("--host")) {
        writeRows(hostRows(dispatcher));
        return 0;
    }

    std::cout << "host calls with " << dispatcher << "..." << std::endl;
    std::vector<Row> rows = hostRows(dispatcher);
    std::cout << "host calls again with QT_NO_GLIB=1, in a child process..." << std::endl;
    const std::vector<Row> noGlib = readRows(runChild({QStringLiteral("--host")}, true));
    rows.insert(rows.end(), noGlib.begin(), noGlib.end());
    std::cout << "writer runs..." << std::endl;
    std::string floorCheck;
    bool floorMatches = false;
    const std::vector<Row> writer = writerRows(&floorCheck, &floorMatches);
    rows.insert(rows.end(), writer.begin(), writer.end());
    std::cout << "memory, in child processes..." << std::endl;
    rows.push_back(memoryRow(false));
    rows.push_back(memoryRow(true));

    std::cout << "system calls per single entry, under strace..." << std::endl;
    const double ourCalls = systemCallsPerEntry(false), floorCalls = systemCallsPerEntry(true);

    printTable(rows);
    std::cout << "floor check: " << floorCheck << std::endl;
    if (ourCalls < 0 || floorCalls < 0)
        std::cout << "system calls per single entry: not counted (strace could not run)"
                  << std::endl;
    else
        std::printf("system calls per single entry (strace -f -c, every thread): userlog %.1f, "
                    "floor %.1f\n",
                    ourCalls, floorCalls);
    const bool complete =
        noGlib.size() == 2 && std::none_of(rows.begin(), rows.end(), [](const Row& r) {
            return std::isnan(r.ours) || std::isnan(r.peer);
        });
    return floorMatches && complete ? 0 : 1;
}
