#ifndef LOGFORMAT_H
#define LOGFORMAT_H

#include "userloglevel.h"

#include <QtCore/QDateTime>
#include <QtCore/QString>

// Every text the writer writes, in one place: user log lines (header patterns,
// level tags, which entries are print lines), banners, bcc lines and the debug
// messages. Pure, so that its tables can be tested without a disk.
namespace logformat {

// Whether an entry came alone or in a batch: levels 5 and 6 differ between the two.
enum class EntryForm
{
    Single,
    Batch
};

extern const QString onlineHeaderFormat;  // "-- %1 --"
extern const QString offlineHeaderFormat; // "**%1**"

// Writer-made times: banners and bcc lines, "yyyy-MM-dd hh:mm:ss".
QString stateTimeText(const QDateTime& time);

// ("**%1**", "09:15") gives "**09:15**". The inserted text is never rescanned,
// so a time text holding "%1" or "%2" stays literal.
QString fillHeader(const QString& headerFormat, const QString& time);

// 2 "info", 3 "warn", 4 "erro", 5 "printinfo" in a batch only, everything else "log".
QString levelTag(int level, EntryForm form);

// A single entry of level 6, or a batch entry of level 5, is also a print line.
bool isPrintEntry(int level, EntryForm form);

// The filled header + " <" + block + "> <" + tag + "> " + message + "\n", with
// nothing rescanned.
QString userLogLine(const QString& headerFormat, const QString& time, const QString& block,
                    const QString& tag, const QString& message);

// The banner of a connection state: its line, header and text, between two separators.
extern const QString bannerSeparator; // "//---------------------------------"
extern const QString bootedUpText;    // " <user log> <log> krn user log systerm booted up!" (sic)
extern const QString connectedText;   // " <user log> <log> krn system connected with controller!"
extern const QString lostConnectionText;

// Bcc log lines, each with its "\n". The markers are filled one after the other,
// so each sees the text inserted before it: a "%3" in the address takes the message.
QString bccConnectedLine(const QString& time, const QString& ipAddr, const QString& msg);
QString bccBrokenLine(const QString& time, const QString& ipAddr, const QString& msg);
QString tcpProbeLine(const QString& time, const QString& ipAddr, bool reachable);

// The writer's debug messages, verbatim; "%s" takes a path or the framework's
// error text in the local 8-bit encoding.
namespace message {
constexpr char makeLogDirFailed[] = "make log dir failed!";
constexpr char makeLogDirSucceeded[] = "make log dir succeded!"; // sic: the text hosts know
constexpr char cannotMakeLogDir[] = "error, can not make log dir!";
constexpr char cannotMakeBccLogDir[] = "error, can not make bcc log dir!";
constexpr char bannerOpenError[] = "open log file error1(%s):%s"; // path as handed to QFile
constexpr char entryOpenError[] = "open log file error2:%s";      // a single entry's user log
constexpr char openError[] = "open log file error3:%s";           // batch, or the print file
constexpr char bccOpenError[] = "open bcc log file error3:%s";
// Once per file until a write to it succeeds again: its path, then why.
constexpr char writeError[] = "write log file error(%s):%s";
constexpr char noLogInformation[] = "no log information to write!";
constexpr char emptyLogList[] = "received empty log list!";
} // namespace message

} // namespace logformat

#endif // LOGFORMAT_H
