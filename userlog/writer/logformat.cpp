#include "logformat.h"

namespace logformat {

const QString onlineHeaderFormat = QStringLiteral("-- %1 --");
const QString offlineHeaderFormat = QStringLiteral("**%1**");

const QString bannerSeparator = QStringLiteral("//---------------------------------");
const QString bootedUpText = QStringLiteral(" <user log> <log> krn user log systerm booted up!");
const QString connectedText =
    QStringLiteral(" <user log> <log> krn system connected with controller!");
const QString lostConnectionText =
    QStringLiteral(" <user log> <log> krn system lost connection with controller!");

QString stateTimeText(const QDateTime& time)
{
    return time.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
}

namespace {

// Position of the next "%1" at or after from, or -1. A two-character scan of
// a short pattern; QString::indexOf would first convert the Latin-1 needle.
int findMarker(const QString& text, int from)
{
    for (int i = from; i + 1 < text.size(); ++i) {
        if (text.at(i) == QLatin1Char('%') && text.at(i + 1) == QLatin1Char('1'))
            return i;
    }
    return -1;
}

const QLatin1String marker("%1");

// Where the one "%1" of headerFormat is, or -1 when it holds none or several:
// those are filled by replace(), which leaves inserted text alone where arg()
// would also warn about a pattern without a marker.
int singleMarker(const QString& headerFormat)
{
    const int at = findMarker(headerFormat, 0);
    return at >= 0 && findMarker(headerFormat, at + marker.size()) < 0 ? at : -1;
}

int filledSize(const QString& headerFormat, const QString& time)
{
    return headerFormat.size() - marker.size() + time.size();
}

void appendFilled(QString& out, const QString& headerFormat, int at, const QString& time)
{
    const int tail = at + marker.size();
    out.append(headerFormat.constData(), at).append(time);
    out.append(headerFormat.constData() + tail, headerFormat.size() - tail);
}

} // namespace

QString fillHeader(const QString& headerFormat, const QString& time)
{
    const int at = singleMarker(headerFormat);
    if (at < 0)
        return QString(headerFormat).replace(marker, time);
    QString header;
    header.reserve(filledSize(headerFormat, time));
    appendFilled(header, headerFormat, at, time);
    return header;
}

QString levelTag(int level, EntryForm form)
{
    switch (level) {
    case UserLogInfo:
        return QStringLiteral("info");
    case UserLogWarn:
        return QStringLiteral("warn");
    case UserLogError:
        return QStringLiteral("erro");
    case UserLogPrintInfo:
        return form == EntryForm::Batch ? QStringLiteral("printinfo") : QStringLiteral("log");
    default:
        return QStringLiteral("log");
    }
}

bool isPrintEntry(int level, EntryForm form)
{
    return level == (form == EntryForm::Batch ? UserLogPrintInfo : UserLogPrint);
}

QString userLogLine(const QString& headerFormat, const QString& time, const QString& block,
                    const QString& tag, const QString& message)
{
    // Called for every line: the writer's patterns hold one marker, and then
    // the whole line is built in one allocation.
    const QLatin1String openBlock(" <");
    const QLatin1String openTag("> <");
    const QLatin1String closeTag("> ");
    const int at = singleMarker(headerFormat);
    const QString header = at < 0 ? fillHeader(headerFormat, time) : QString();
    QString line;
    line.reserve((at < 0 ? header.size() : filledSize(headerFormat, time)) + openBlock.size() +
                 block.size() + openTag.size() + tag.size() + closeTag.size() + message.size() + 1);
    if (at < 0)
        line.append(header);
    else
        appendFilled(line, headerFormat, at, time);
    line.append(openBlock).append(block).append(openTag).append(tag);
    line.append(closeTag).append(message).append(QLatin1Char('\n'));
    return line;
}

namespace {
// One arg() after the other, so each sees the text inserted by the one before.
QString filledInTurn(const QString& format, const QString& time, const QString& ipAddr,
                     const QString& msg)
{
    return format.arg(time).arg(ipAddr).arg(msg);
}
} // namespace

QString bccConnectedLine(const QString& time, const QString& ipAddr, const QString& msg)
{
    return filledInTurn(QStringLiteral("-- %1 -- bcc connected to %2, message:%3\n"), time, ipAddr,
                        msg);
}

QString bccBrokenLine(const QString& time, const QString& ipAddr, const QString& msg)
{
    return filledInTurn(QStringLiteral("-- %1 -- bcc connection with %2 is broken, message:%3\n"),
                        time, ipAddr, msg);
}

QString tcpProbeLine(const QString& time, const QString& ipAddr, bool reachable)
{
    const QString format = reachable ? QStringLiteral("-- %1 -- tcp connection with %2 is ok\n")
                                     : QStringLiteral("-- %1 -- tcp lost connection with %2\n");
    return format.arg(time).arg(ipAddr);
}

} // namespace logformat
