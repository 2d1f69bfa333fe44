#ifndef USERLOGWRITER_H
#define USERLOGWRITER_H

#include "../userlog.h"
#include "appendonlyfile.h"
#include "userloglevel.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QString>

extern const QString offlineLogDir;
extern const QString onlineLogDir;
extern const QString userOnlineLogDir;
extern const QString bccLogDir;
extern const QString customIniPath;

// Does all of the library's file and socket work. Created on the thread of the
// first UserLog::logger() call, then moved to the log thread; every slot runs
// there, one event at a time. No file, socket or settings object is held open
// between events, and every event derives its files from the directories anew.
class UserLogWriter : public QObject
{
    Q_OBJECT

public:
    explicit UserLogWriter(QObject* parent = nullptr);
    ~UserLogWriter() override;

public slots:
    // "Systerm" (sic): hosts connect to this name by signature; it must stay so.
    void setSystermConnectState(bool bConnected = false, bool bFirstTime = false);
    void receiveUserLogs(QString inBlock, QString inTime, QString inLogInfo, int inLevel);
    void receiveUserLogs(QString inBlock, QString inTime, QString inLogInfo, UserLogLevel inLevel);
    void receiveUserLogs(QList<LogInformation> inLogInfo);
    void receiveBccLogs(bool bConnect, QString ipAddr, quint16 port, QString msg);
    void deleteOldestFiles(const QString& folderPath, int maxFileCount);

protected slots:
    void checkTcpState();

private:
    Q_DISABLE_COPY(UserLogWriter)

    bool resolveIndexedLogPath(const QString& namePattern, const QString& dirPath,
                               QString& filePath, int maxFiles);
    bool resolveDatedLogPath(const QString& namePrefix, const QString& dirPath, QString& filePath,
                             int maxFiles);
    void writeUserLogList(const QList<LogInformation>& list);
    void writeBccLog(const QString& line);

    // What is being written decides the order of the steps and the failure messages.
    enum class LogEvent
    {
        Banner,
        SingleEntry,
        Batch
    };
    bool openCurrentLogFiles(LogEvent event, AppendOnlyFile& userLog, AppendOnlyFile& printFile);
    enum class LogFile
    {
        UserLog,
        PrintFile
    };
    static bool openLogFile(AppendOnlyFile& file, const QString& path, LogEvent event,
                            LogFile which);

    QDateTime _stateTime;
    bool _bConnected;
    QString _offlineLogName;
    QString _onlineLogName;
    QString _logDir;
    QString _logName;
    QString _printDir;
    QString _printFileName;
    QString _bccLogName;
    // The last bcc report taken in, one of the BccState values.
    enum BccState : int
    {
        BccNoReportYet = -1,
        BccBroken = 0,
        BccConnected = 1
    };
    int _bccState;
    QString _bccIpAddr;
    quint16 _bccPort;
    int _tcpCheckCount;
    QMutex _mutex;
    QString _headerFormat;
    // Which files a write failed on, so that each failure is told once and a
    // line it cut short is ended before the next one.
    WriteFailures _writeFailures;
};

#endif // USERLOGWRITER_H
