#ifndef LOGFORMAT_H
#define LOGFORMAT_H

#include <QtCore/QDateTime>
#include <QtCore/QString>

// The text of user log lines: header patterns, level tags, which entries are
// print lines. Pure, so that its tables can be tested without a disk.
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

// header + " <" + block + "> <" + tag + "> " + message, with nothing rescanned.
QString userLogLine(const QString& header, const QString& block, const QString& tag,
                    const QString& message);

} // namespace logformat

#endif // LOGFORMAT_H
