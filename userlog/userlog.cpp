#include "userlog.h"

#include "userlogthread.h"
#include "writer/userlogwriter.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QSemaphore>
#include <QtCore/QSharedPointer>

namespace {
// How long a quitting application may wait for the log thread to catch up.
constexpr int quitFlushTimeoutMs = 5000;
} // namespace

UserLog* UserLog::_logger = nullptr;

UserLog* UserLog::logger()
{
    // Plain null test by design: the host makes the first call before any
    // other thread can log.
    if (_logger != nullptr)
        return _logger;
    _logger = new UserLog(nullptr);
    return _logger;
}

UserLog::UserLog(QObject* parent) : QObject(parent)
{
    _thread = new UserLogThread(nullptr);
    // Reads the settings and writes the start-up banner on this thread.
    _writer = new UserLogWriter(nullptr);
    _bConnectedWithController = false;

    // Batches cross threads by value, so the list type must be known by name
    // before the first batch can be emitted.
    qRegisterMetaType<QList<LogInformation>>("QList<LogInformation>");
    qRegisterMetaType<QList<LogInformation>>("QList<LogInformation>&");

    connect(this, SIGNAL(sendUserLogs(QString, QString, QString, int)), _writer,
            SLOT(receiveUserLogs(QString, QString, QString, int)));
    connect(this, SIGNAL(sendUserLogs(QList<LogInformation>)), _writer,
            SLOT(receiveUserLogs(QList<LogInformation>)));
    connect(this, SIGNAL(singalConnectedWithController(bool)), _writer,
            SLOT(setSystermConnectState(bool)));
    connect(this, SIGNAL(sendBccConnectState(bool, QString, quint16, QString)), _writer,
            SLOT(receiveBccLogs(bool, QString, quint16, QString)));

    _writer->moveToThread(_thread);
    _thread->start();

    // A functor connection adds no meta-method, so the class's signal and slot
    // indexes stay as they are.
    if (QCoreApplication* app = QCoreApplication::instance())
        connect(app, &QCoreApplication::aboutToQuit, this, &UserLog::flushOnApplicationQuit);
}

UserLog::~UserLog()
{
    if (_thread != nullptr) {
        _thread->termaniteLogThread();
        _thread->wait();
        delete _thread;
    }
    // The writer is deliberately left alive: queued calls may still name it.
}

void UserLog::recordLog(const QString& inBlock, const QString& inTime, const QString& inLogInfo,
                        const int& inLevel)
{
    emit sendUserLogs(inBlock, inTime, inLogInfo, inLevel);
}

void UserLog::recordLog(const QList<LogInformation>& inLogInfo)
{
    emit sendUserLogs(inLogInfo);
}

void UserLog::recordBccLog(bool bConnect, QString ipAddr, quint16 port, QString msg)
{
    emit sendBccConnectState(bConnect, ipAddr, port, msg);
}

void UserLog::connectedWithController(bool bConnected)
{
    if (bConnected == _bConnectedWithController)
        return;
    _bConnectedWithController = bConnected;
    emit singalConnectedWithController(bConnected);
}

bool UserLog::flush(int msecs)
{
    // Without an application object the log thread's loop delivers nothing, and
    // on the log thread itself the marker could never run while we wait.
    if (QCoreApplication::instance() == nullptr || QThread::currentThread() == _thread ||
        !_thread->isRunning())
        return false;

    // The marker joins the writer's event queue behind every call posted so far;
    // shared ownership keeps the semaphore alive if we give up waiting first.
    // QSharedPointer rather than std::shared_ptr: the latter's control block
    // would leave exported weak std:: symbols in the library.
    const auto handled = QSharedPointer<QSemaphore>::create(0);
    QMetaObject::invokeMethod(
        _writer, [handled] { handled->release(); }, Qt::QueuedConnection);
    return handled->tryAcquire(1, msecs < 0 ? -1 : msecs);
}

void UserLog::flushOnApplicationQuit()
{
    flush(quitFlushTimeoutMs);
}
