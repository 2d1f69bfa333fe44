#include "userlogwriter.h"

#include "../backlog.h"
#include "appendonlyfile.h"
#include "logformat.h"

#include <QtCore/QMutexLocker>

using logformat::EntryForm;

namespace {

QString entryLine(const QString& headerFormat, const QString& time, const QString& block, int level,
                  const QString& message, EntryForm form)
{
    return logformat::userLogLine(headerFormat, time, block, logformat::levelTag(level, form),
                                  message);
}

} // namespace

void UserLogWriter::receiveUserLogs(QString inBlock, QString inTime, QString inLogInfo, int inLevel)
{
    const backlog::HandledCall handled;
    receiveUserLogs(inBlock, inTime, inLogInfo, static_cast<UserLogLevel>(inLevel));
}

void UserLogWriter::receiveUserLogs(QString inBlock, QString inTime, QString inLogInfo,
                                    UserLogLevel inLevel)
{
    if (inLogInfo.isEmpty()) {
        qDebug(logformat::message::noLogInformation);
        return;
    }
    QMutexLocker locker(&_mutex);
    AppendOnlyFile userLog(&_writeFailures);
    AppendOnlyFile printFile(&_writeFailures);
    if (!openCurrentLogFiles(LogEvent::SingleEntry, userLog, printFile))
        return;

    const QString line =
        entryLine(_headerFormat, inTime, inBlock, inLevel, inLogInfo, EntryForm::Single);
    userLog.writeLine(line);
    userLog.close();
    if (logformat::isPrintEntry(inLevel, EntryForm::Single))
        printFile.writeLine(line);
    printFile.close();
}

void UserLogWriter::receiveUserLogs(QList<LogInformation> inLogInfo)
{
    const backlog::HandledCall handled;
    writeUserLogList(inLogInfo);
}

void UserLogWriter::writeUserLogList(const QList<LogInformation>& list)
{
    if (list.isEmpty()) {
        qDebug(logformat::message::emptyLogList);
        return;
    }
    QMutexLocker locker(&_mutex);
    AppendOnlyFile userLog(&_writeFailures);
    AppendOnlyFile printFile(&_writeFailures);
    if (!openCurrentLogFiles(LogEvent::Batch, userLog, printFile))
        return;

    // The whole batch goes into the two files chosen at its start.
    const int count = list.size();
    for (int i = 0; i < count; ++i) {
        const LogInformation& entry = list.at(i);
        const QString line = entryLine(_headerFormat, entry.time, entry.block, entry.level,
                                       entry.logInfo, EntryForm::Batch);
        userLog.writeLine(line);
        if (logformat::isPrintEntry(entry.level, EntryForm::Batch))
            printFile.writeLine(line);
        backlog::workDone(); // a long batch is no stall
    }
    userLog.close();
    printFile.close();
}
