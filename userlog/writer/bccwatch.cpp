#include "userlogwriter.h"

#include "../backlog.h"
#include "logfiles.h"
#include "logformat.h"

#include <QtCore/QFile>
#include <QtCore/QMutexLocker>
#include <QtCore/QTextStream>
#include <QtCore/QTimer>
#include <QtNetwork/QTcpSocket>

namespace {

// A probe blocks the log thread for at most this long.
constexpr int probeTimeoutMs = 1500;
// Pause between the end of one probe and the start of the next.
constexpr int probeIntervalMs = 500;
// Probes after the first one in a series.
constexpr int followUpProbes = 3;

// The bcc formats are filled one marker after the other, so each arg() sees
// the text inserted by the one before.
QString connectedLine(const QString& time, const QString& ipAddr, const QString& msg)
{
    return QStringLiteral("-- %1 -- bcc connected to %2, message:%3\n")
        .arg(time)
        .arg(ipAddr)
        .arg(msg);
}

QString brokenLine(const QString& time, const QString& ipAddr, const QString& msg)
{
    return QStringLiteral("-- %1 -- bcc connection with %2 is broken, message:%3\n")
        .arg(time)
        .arg(ipAddr)
        .arg(msg);
}

QString probeLine(const QString& time, const QString& ipAddr, bool reachable)
{
    const QString format = reachable ? QStringLiteral("-- %1 -- tcp connection with %2 is ok\n")
                                     : QStringLiteral("-- %1 -- tcp lost connection with %2\n");
    return format.arg(time).arg(ipAddr);
}

} // namespace

void UserLogWriter::receiveBccLogs(bool bConnect, QString ipAddr, quint16 port, QString msg)
{
    const backlog::HandledCall handled;
    if (ipAddr.isEmpty())
        return;
    if (bConnect && _bccState == 1)
        return;
    _bccIpAddr = ipAddr;
    _bccPort = port;
    _stateTime = QDateTime::currentDateTime();
    const QString time = logformat::stateTimeText(_stateTime);
    if (bConnect) {
        _bccState = 1;
        writeBccLog(connectedLine(time, ipAddr, msg));
        return;
    }
    const QString line = brokenLine(time, ipAddr, msg);
    _bccState = 0;
    writeBccLog(line);
    checkTcpState();
}

void UserLogWriter::checkTcpState()
{
    // Connect only: nothing is sent or read, and the socket lives for this probe alone.
    QTcpSocket socket(nullptr);
    socket.connectToHost(_bccIpAddr, _bccPort, QIODevice::ReadWrite,
                         QAbstractSocket::AnyIPProtocol);
    const bool reachable = socket.waitForConnected(probeTimeoutMs);
    _stateTime = QDateTime::currentDateTime();
    writeBccLog(probeLine(logformat::stateTimeText(_stateTime), _bccIpAddr, reachable));
    backlog::workDone(); // probes that timers start are no host calls, but work all the same

    // One counter for every series, so overlapping series end together.
    if (_tcpCheckCount < followUpProbes) {
        ++_tcpCheckCount;
        QTimer::singleShot(probeIntervalMs, this, SLOT(checkTcpState()));
    } else {
        _tcpCheckCount = 0;
    }
}

void UserLogWriter::writeBccLog(const QString& line)
{
    QMutexLocker locker(&_mutex);
    QString bccLogPath;
    if (!resolveIndexedLogPath(_bccLogName, bccLogDir, bccLogPath, logfiles::maxIndexedLogFiles)) {
        qDebug("error, can not make bcc log dir!");
        return;
    }
    QFile bccLog(bccLogPath);
    if (!logfiles::openForAppend(bccLog)) {
        qDebug("open bcc log file error3:%s", logfiles::openErrorText(bccLog).constData());
        return;
    }
    QTextStream stream(&bccLog);
    stream << line;
    stream.flush();
    bccLog.close();
}
