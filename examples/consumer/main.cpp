// Logs one entry through the installed library and waits until it is written.
#include <userlog/userlog.h>

#include <QtCore/QCoreApplication>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    UserLog::logger()->recordLog("CONSUMER", "12:00:00", "linked against the installed package", 2);
    return UserLog::logger()->flush(10000) ? 0 : 1;
}
