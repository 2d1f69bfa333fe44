// A small host: starts the library in the working directory it is given, reports
// the controller connected and lost, logs a few entries, and waits for the writes.
#include <userlog/userlog.h>

#include <QtCore/QCoreApplication>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    UserLog* log = UserLog::logger();

    log->recordLog(QStringLiteral("MAIN"), QStringLiteral("08:00:00"),
                   QStringLiteral("offline entry"), 2);
    log->connectedWithController(true);
    log->recordLog(QStringLiteral("MAIN"), QStringLiteral("08:00:01"),
                   QStringLiteral("Program started"), 2);
    log->recordLog(QStringLiteral("MAIN"), QStringLiteral("08:00:02"),
                   QStringLiteral("Part count: 17"), 6);
    log->recordLog(
        {{QStringLiteral("08:00:03"), QStringLiteral("MAIN"), QStringLiteral("Speed reduced"), 3},
         {QStringLiteral("08:00:04"), QStringLiteral("MAIN"), QStringLiteral("Part count: 18"),
          5}});
    log->connectedWithController(false);
    log->recordLog(QStringLiteral("MAIN"), QStringLiteral("08:00:05"),
                   QStringLiteral("Axis 3 near soft limit"), 4);
    return log->flush(10000) ? 0 : 1;
}
