#include "userlogwriter.h"

#include "logfiles.h"
#include "logformat.h"

#include <QtCore/QFile>
#include <QtCore/QMutexLocker>
#include <QtCore/QSettings>
#include <QtCore/QTextStream>

const QString offlineLogDir = QStringLiteral("../../log/offline");
const QString onlineLogDir = QStringLiteral("../../log/online");
const QString userOnlineLogDir = QStringLiteral("../../log/useronline");
const QString bccLogDir = QStringLiteral("../../log/bccLog");
const QString customIniPath = QStringLiteral("../../KRN/user/custom.ini");

namespace {

const QString bannerSeparator = QStringLiteral("//---------------------------------");
const QString bootedUpText = QStringLiteral(" <user log> <log> krn user log systerm booted up!");
const QString connectedText =
    QStringLiteral(" <user log> <log> krn system connected with controller!");
const QString lostConnectionText =
    QStringLiteral(" <user log> <log> krn system lost connection with controller!");

QString customLogName(const QSettings& settings)
{
    return settings.value(QStringLiteral("CUSTOM_LOG_NAME"), QStringLiteral("user_print_file"))
        .toString();
}

// A settings object of its own per read, so an edit of the file takes effect
// at the next connect.
QString readCustomLogName()
{
    const QSettings settings(customIniPath, QSettings::IniFormat);
    return customLogName(settings);
}

void writeBanner(QFile& file, const QString& bannerLine)
{
    QTextStream stream(&file);
    stream << bannerSeparator << Qt::endl << bannerLine << Qt::endl << bannerSeparator << Qt::endl;
    file.close();
}

} // namespace

UserLogWriter::UserLogWriter(QObject* parent)
    : QObject(parent), _stateTime(QDateTime::currentDateTime()), _bConnected(false), _bccState(-1),
      _bccPort(0), _tcpCheckCount(0)
{
    _onlineLogName = QStringLiteral("user_log_file_%1.txt");
    // The settings file stays open until construction is complete.
    const QSettings settings(customIniPath, QSettings::IniFormat);
    _offlineLogName = customLogName(settings) + QStringLiteral("_off");
    _bccLogName = QStringLiteral("bcc_log_file_%1.txt");
    setSystermConnectState(false, true);
}

UserLogWriter::~UserLogWriter() = default;

void UserLogWriter::setSystermConnectState(bool bConnected, bool bFirstTime)
{
    QMutexLocker locker(&_mutex);
    if (bConnected == _bConnected && !bFirstTime)
        return;
    _bConnected = bConnected;
    _stateTime = QDateTime::currentDateTime();

    const QString* bannerText = &lostConnectionText;
    if (bConnected) {
        _logName = _onlineLogName;
        _logDir = onlineLogDir;
        _printFileName = readCustomLogName();
        _printDir = userOnlineLogDir;
        _headerFormat = logformat::onlineHeaderFormat;
        bannerText = &connectedText;
    } else {
        _headerFormat = logformat::offlineHeaderFormat;
        if (bFirstTime) {
            _logName = _offlineLogName;
            _logDir = offlineLogDir;
            _printFileName = readCustomLogName() + QStringLiteral("_off");
            _printDir = offlineLogDir;
            bannerText = &bootedUpText;
        }
    }
    const QString bannerLine =
        logformat::fillHeader(_headerFormat, logformat::stateTimeText(_stateTime)) + *bannerText;

    QString userLogPath;
    QString printPath;
    if (!resolveIndexedLogPath(_logName, _logDir, userLogPath, 100) ||
        !resolveDatedLogPath(_printFileName, _printDir, printPath, 500)) {
        qDebug("error, can not make log dir!");
        return;
    }
    QFile userLog(userLogPath);
    QFile printFile(printPath);
    for (QFile* file : {&userLog, &printFile}) {
        if (!logformat::openForAppend(*file)) {
            qDebug("open log file error1(%s):%s", file->fileName().toLocal8Bit().constData(),
                   logformat::errorText(*file).constData());
            return;
        }
    }
    writeBanner(userLog, bannerLine);
    writeBanner(printFile, bannerLine);

    // A loss is announced in the online files; only then does the user log move.
    if (!bConnected) {
        _logName = _offlineLogName;
        _logDir = offlineLogDir;
    }
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
