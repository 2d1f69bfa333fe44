// Child program of tst_host's quit case, run in a fresh tree as its working
// directory. It keeps the log thread busy with a large batch, posts 5,000 single
// entries behind it and leaves its event loop through QCoreApplication::quit(),
// never calling flush() itself. Before the library's own handler runs, it prints
// how many lines were on disk when the quit began, so the test can tell that the
// log thread really was behind.
#include <userlog/userlog.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QTimer>

#include <cstdio>

namespace {

constexpr int busyBatchEntries = 20000;
constexpr int quitEntries = 5000;

qint64 linesOnDisk()
{
    QFile file(QStringLiteral("../../log/offline/user_print_file_off"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    return file.readAll().count('\n');
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // Connected before the library connects its own handler, so this runs first.
    QObject::connect(&app, &QCoreApplication::aboutToQuit, [] {
        std::printf("lines at quit: %lld\n", static_cast<long long>(linesOnDisk()));
        std::fflush(stdout);
    });

    UserLog* log = UserLog::logger();
    QList<LogInformation> busy;
    busy.reserve(busyBatchEntries);
    for (int i = 0; i < busyBatchEntries; ++i)
        busy.append({QStringLiteral("08:00:00"), QStringLiteral("BUSY"),
                     QStringLiteral("filler %1").arg(i), 2});
    log->recordLog(busy);
    for (int i = 0; i < quitEntries; ++i)
        log->recordLog(QStringLiteral("QUIT"), QStringLiteral("08:00:01"),
                       QStringLiteral("entry %1").arg(i), 2);

    QTimer::singleShot(0, &app, &QCoreApplication::quit);
    return app.exec();
}
