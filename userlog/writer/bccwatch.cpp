#include "userlogwriter.h"

#include "../backlog.h"
#include "appendonlyfile.h"
#include "indexedlog.h"
#include "logformat.h"

#include <QtCore/QMutexLocker>
#include <QtCore/QTimer>
#include <QtNetwork/QTcpSocket>

namespace {

// A probe blocks the log thread for at most this long.
constexpr int probeTimeoutMs = 1500;
// Pause between the end of one probe and the start of the next.
constexpr int probeIntervalMs = 500;
// Probes after the first one in a series.
constexpr int followUpProbes = 3;

} // namespace

void UserLogWriter::receiveBccLogs(bool bConnect, QString ipAddr, quint16 port, QString msg)
{
    const backlog::HandledCall handled;
    if (ipAddr.isEmpty())
        return;
    if (bConnect && _bccState == BccConnected)
        return;
    _bccIpAddr = ipAddr;
    _bccPort = port;
    _stateTime = QDateTime::currentDateTime();
    const QString time = logformat::stateTimeText(_stateTime);
    if (bConnect) {
        _bccState = BccConnected;
        writeBccLog(logformat::bccConnectedLine(time, ipAddr, msg));
        return;
    }
    const QString line = logformat::bccBrokenLine(time, ipAddr, msg);
    _bccState = BccBroken;
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
    writeBccLog(
        logformat::tcpProbeLine(logformat::stateTimeText(_stateTime), _bccIpAddr, reachable));
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
        qDebug(logformat::message::cannotMakeBccLogDir);
        return;
    }
    AppendOnlyFile bccLog(&_writeFailures);
    if (!bccLog.open(bccLogPath)) {
        qDebug(logformat::message::bccOpenError, bccLog.errorText().constData());
        return;
    }
    bccLog.writeLine(line);
    bccLog.close();
}
