#include "userlogwriter.h"

#include "../backlog.h"
#include "appendonlyfile.h"
#include "datedlog.h"
#include "indexedlog.h"
#include "localeencoding.h"
#include "logformat.h"

#include <QtCore/QMutexLocker>
#include <QtCore/QSettings>

const QString offlineLogDir = QStringLiteral("../../log/offline");
const QString onlineLogDir = QStringLiteral("../../log/online");
const QString userOnlineLogDir = QStringLiteral("../../log/useronline");
const QString bccLogDir = QStringLiteral("../../log/bccLog");
const QString customIniPath = QStringLiteral("../../KRN/user/custom.ini");

namespace {

QString customLogName(const QSettings& settings)
{
    return localeencoding::iniString(settings, QStringLiteral("CUSTOM_LOG_NAME"),
                                     QStringLiteral("user_print_file"));
}

// A settings object of its own per read, so an edit of the file takes effect
// at the next connect.
QString readCustomLogName()
{
    const QSettings settings(customIniPath, QSettings::IniFormat);
    return customLogName(settings);
}

void writeBanner(AppendOnlyFile& file, const QString& bannerLine)
{
    const QString separator = logformat::bannerSeparator + QLatin1Char('\n');
    file.writeLine(separator);
    file.writeLine(bannerLine + QLatin1Char('\n'));
    file.writeLine(separator);
    file.close();
}

} // namespace

UserLogWriter::UserLogWriter(QObject* parent)
    : QObject(parent), _stateTime(QDateTime::currentDateTime()), _bConnected(false),
      _bccState(BccNoReportYet), _bccPort(0), _tcpCheckCount(0)
{
    _onlineLogName = QStringLiteral("user_log_file_%1.txt");
    // The settings file stays open until construction is complete.
    const QSettings settings(customIniPath, QSettings::IniFormat);
    _offlineLogName = customLogName(settings) + QStringLiteral("_off");
    _bccLogName = QStringLiteral("bcc_log_file_%1.txt");
    const bool bConnected = false;
    const bool bFirstTime = true;
    setSystermConnectState(bConnected, bFirstTime);
}

UserLogWriter::~UserLogWriter() = default;

void UserLogWriter::setSystermConnectState(bool bConnected, bool bFirstTime)
{
    // Host reports never come with bFirstTime; the constructor's call is no host call.
    const bool fromHost = !bFirstTime;
    const backlog::HandledCall handled(fromHost);
    QMutexLocker locker(&_mutex);
    if (bConnected == _bConnected && !bFirstTime)
        return;
    _bConnected = bConnected;
    _stateTime = QDateTime::currentDateTime();

    const QString* bannerText = &logformat::lostConnectionText;
    if (bConnected) {
        _logName = _onlineLogName;
        _logDir = onlineLogDir;
        _printFileName = readCustomLogName();
        _printDir = userOnlineLogDir;
        _headerFormat = logformat::onlineHeaderFormat;
        bannerText = &logformat::connectedText;
    } else {
        _headerFormat = logformat::offlineHeaderFormat;
        if (bFirstTime) {
            _logName = _offlineLogName;
            _logDir = offlineLogDir;
            _printFileName = readCustomLogName() + QStringLiteral("_off");
            _printDir = offlineLogDir;
            bannerText = &logformat::bootedUpText;
        }
    }
    const QString bannerLine =
        logformat::fillHeader(_headerFormat, logformat::stateTimeText(_stateTime)) + *bannerText;

    AppendOnlyFile userLog(&_writeFailures);
    AppendOnlyFile printFile(&_writeFailures);
    if (!openCurrentLogFiles(LogEvent::Banner, userLog, printFile))
        return;
    writeBanner(userLog, bannerLine);
    writeBanner(printFile, bannerLine);

    // A loss is announced in the online files; only then does the user log move.
    if (!bConnected) {
        _logName = _offlineLogName;
        _logDir = offlineLogDir;
    }
}

// A banner resolves both files before it opens either. An entry opens the user
// log before it resolves the print file, so a print file that fails leaves the
// user log created but empty. Either file that fails ends the event: the
// caller's files close whatever did open.
bool UserLogWriter::openCurrentLogFiles(LogEvent event, AppendOnlyFile& userLog,
                                        AppendOnlyFile& printFile)
{
    QString userLogPath;
    QString printPath;
    const auto resolvePrintPath = [&] {
        if (resolveDatedLogPath(_printFileName, _printDir, printPath, logfiles::maxPrintFiles))
            return true;
        qDebug(logformat::message::cannotMakeLogDir);
        return false;
    };
    if (!resolveIndexedLogPath(_logName, _logDir, userLogPath, logfiles::maxIndexedLogFiles)) {
        qDebug(logformat::message::cannotMakeLogDir);
        return false;
    }
    if (event == LogEvent::Banner && !resolvePrintPath())
        return false;
    if (!openLogFile(userLog, userLogPath, event, LogFile::UserLog))
        return false;
    if (event != LogEvent::Banner && !resolvePrintPath())
        return false;
    return openLogFile(printFile, printPath, event, LogFile::PrintFile);
}

// Each path has its own message for a file that does not open; a banner's
// also names the file, by the path as handed over: QFile::fileName() would give
// it back with "/" for the native separator before the name on Windows.
bool UserLogWriter::openLogFile(AppendOnlyFile& file, const QString& path, LogEvent event,
                                LogFile which)
{
    if (file.open(path))
        return true;
    const QByteArray error = file.errorText();
    if (event == LogEvent::Banner)
        qDebug(logformat::message::bannerOpenError, path.toLocal8Bit().constData(),
               error.constData());
    else if (event == LogEvent::SingleEntry && which == LogFile::UserLog)
        qDebug(logformat::message::entryOpenError, error.constData());
    else
        qDebug(logformat::message::openError, error.constData());
    return false;
}

void UserLogWriter::deleteOldestFiles(const QString& folderPath, int maxFileCount)
{
    logfiles::deleteOldestFiles(folderPath, maxFileCount);
}

bool UserLogWriter::resolveIndexedLogPath(const QString& namePattern, const QString& dirPath,
                                          QString& filePath, int maxFiles)
{
    return logfiles::resolveIndexedLogPath(namePattern, dirPath, filePath, maxFiles);
}

bool UserLogWriter::resolveDatedLogPath(const QString& namePrefix, const QString& dirPath,
                                        QString& filePath, int maxFiles)
{
    return logfiles::resolveDatedLogPath(namePrefix, dirPath, filePath, maxFiles);
}
