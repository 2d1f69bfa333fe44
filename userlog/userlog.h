#ifndef USERLOG_H
#define USERLOG_H

#include "userlog_global.h"

#include <QtCore/QList>
#include <QtCore/QMetaType>
#include <QtCore/QObject>
#include <QtCore/QString>

class UserLogThread;
class UserLogWriter;

// One user log entry as a host hands it over in a batch. Note the order: the
// record starts with the time text, the single-entry recordLog() with the block.
struct LogInformation
{
    QString time;    // the entry's time text, written unchanged into the line header
    QString block;   // program block or source of the entry
    QString logInfo; // the message
    int level;       // 2 info, 3 warn, 4 erro, 5 and 6 print entries, anything else plain log
};
Q_DECLARE_METATYPE(LogInformation)

// The library's one entry point. Every call below returns at once: it becomes a
// queued call that the library's own log thread turns into lines in the log
// files. The first logger() call is the exception: it builds the log thread and
// writes the start-up banner on the calling thread.
//
// A process that wants its log lines written needs a QCoreApplication (or a
// QGuiApplication/QApplication): without one the log thread cannot deliver
// queued calls.
class USERLOG_EXPORT UserLog : public QObject
{
    Q_OBJECT

public:
    // Returns the process-wide instance, creating it on the first call. Make
    // that first call once, on one thread, before other threads log.
    static UserLog* logger();

    // Inserts one entry into the user log; levels 6 are copied to the print file.
    void recordLog(const QString& inBlock, const QString& inTime, const QString& inLogInfo,
                   const int& inLevel);
    // Inserts a batch of entries in list order; levels 5 are copied to the print file.
    void recordLog(const QList<LogInformation>& inLogInfo);
    // Reports a change of the bcc link; a broken link is probed four times.
    void recordBccLog(bool bConnect, QString ipAddr, quint16 port, QString msg);
    // Reports the controller connection; a state equal to the last one is ignored.
    // Call it from one thread at a time.
    void connectedWithController(bool bConnected);

    // Waits until every call posted before this one has been handled by the log
    // thread and returns true, or returns false when msecs (negative: no limit)
    // run out. Probe timers armed by the bcc link watch are not waited for.
    // Returns false at once when called on the log thread itself or when the
    // process has no QCoreApplication (the log thread then delivers nothing).
    //
    // When a QCoreApplication exists at the first logger() call, made on any
    // thread, the library also drains the log thread on
    // QCoreApplication::aboutToQuit: it waits as long as the log thread keeps
    // finishing work, however slow the disk, so a host that leaves its event
    // loop normally loses no posted call. Only a log thread that finishes
    // nothing for 5 seconds (a hung disk or share) is given up on, with a debug
    // message that counts the calls left unwritten.
    bool flush(int msecs = -1);

signals:
    void sendUserLogs(QString inBlock, QString inTime, QString inLogInfo, int inLevel);
    void sendUserLogs(QList<LogInformation> inLogInfo);
    // "singal" (sic): hosts connect to this name by signature; it must stay so.
    void singalConnectedWithController(bool bConnected);
    void sendBccConnectState(bool bConnect, QString ipAddr, quint16 port, QString msg);

private:
    explicit UserLog(QObject* parent = nullptr);
    virtual ~UserLog();
    Q_DISABLE_COPY(UserLog)

    void flushOnApplicationQuit();

    static UserLog* _logger;
    UserLogThread* _thread;
    UserLogWriter* _writer;
    bool _bConnectedWithController;
};

#endif // USERLOG_H
