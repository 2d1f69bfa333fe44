#include "userlogthread.h"

UserLogThread::UserLogThread(QObject* parent) : QThread(parent)
{
    setObjectName(QStringLiteral("UserLogThread"));
}

UserLogThread::~UserLogThread() = default;

void UserLogThread::termaniteLogThread()
{
    quit();
}

void UserLogThread::run()
{
    exec();
}
