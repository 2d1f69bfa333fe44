// Logs one entry through the installed library and waits until it is written.
#include <userlog/userlog.h>

#include <QtCore/QCoreApplication>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    UserLog* log = UserLog::logger();
    log->recordLog(QStringLiteral("CONSUMER"), QStringLiteral("12:00:00"),
                   QStringLiteral("linked against the installed package"), 2);
    return log->flush(10000) ? 0 : 1;
}
