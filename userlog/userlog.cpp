#include "userlog.h"

#include "backlog.h"
#include "userlogthread.h"
#include "writer/userlogwriter.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QSemaphore>
#include <QtCore/QSharedPointer>

namespace {
// A quitting application waits for the log thread as long as it keeps working
// (backlog::quitStallSeconds). How often the quit looks at its work count:
constexpr int quitPollMs = 100;

// Posts a marker behind every call posted so far; the semaphore is released when
// the log thread reaches it. Null when it never could be: without an application
// object the log thread's loop delivers nothing, and on the log thread itself
// the marker could not run while its caller waits.
QSharedPointer<QSemaphore> postMarker(UserLogWriter* writer, UserLogThread* thread)
{
    if (QCoreApplication::instance() == nullptr || QThread::currentThread() == thread ||
        !thread->isRunning())
        return nullptr;
    // Shared ownership keeps the semaphore alive if the caller gives up first.
    // QSharedPointer rather than std::shared_ptr: the latter's control block
    // would leave exported weak std:: symbols in the library.
    auto handled = QSharedPointer<QSemaphore>::create(0);
    QMetaObject::invokeMethod(
        writer, [handled] { handled->release(); }, Qt::QueuedConnection);
    return handled;
}
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
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0) // Qt 5 names the element with its list, Qt 6 lazily
    qRegisterMetaType<LogInformation>();
#endif

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
    // indexes stay as they are. Direct: this object lives on the thread of the
    // first call, which may have ended long before the application quits.
    if (QCoreApplication* app = QCoreApplication::instance())
        connect(app, &QCoreApplication::aboutToQuit, this, &UserLog::flushOnApplicationQuit,
                Qt::DirectConnection);
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
    backlog::callPosted();
    emit sendUserLogs(inBlock, inTime, inLogInfo, inLevel);
}

void UserLog::recordLog(const QList<LogInformation>& inLogInfo)
{
    backlog::callPosted();
    emit sendUserLogs(inLogInfo);
}

void UserLog::recordBccLog(bool bConnect, QString ipAddr, quint16 port, QString msg)
{
    backlog::callPosted();
    emit sendBccConnectState(bConnect, ipAddr, port, msg);
}

void UserLog::connectedWithController(bool bConnected)
{
    if (bConnected == _bConnectedWithController)
        return;
    _bConnectedWithController = bConnected;
    backlog::callPosted();
    emit singalConnectedWithController(bConnected);
}

bool UserLog::flush(int msecs)
{
    const QSharedPointer<QSemaphore> handled = postMarker(_writer, _thread);
    return handled && handled->tryAcquire(1, msecs < 0 ? -1 : msecs);
}

void UserLog::flushOnApplicationQuit()
{
    const QSharedPointer<QSemaphore> handled = postMarker(_writer, _thread);
    if (!handled)
        return;
    const int stallSeconds = backlog::quitStallSeconds();
    quint64 work = backlog::workCount();
    QElapsedTimer sinceWork;
    sinceWork.start();
    while (!handled->tryAcquire(1, quitPollMs)) {
        if (backlog::workCount() != work) {
            work = backlog::workCount();
            sinceWork.restart();
        } else if (sinceWork.hasExpired(stallSeconds * 1000)) {
            qDebug("log thread stalled for %d s at quit: %llu calls left unwritten", stallSeconds,
                   backlog::pendingCalls());
            return;
        }
    }
}
