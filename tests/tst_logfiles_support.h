// Helpers shared by the spine's tests.
#ifndef TST_LOGFILES_SUPPORT_H
#define TST_LOGFILES_SUPPORT_H

#include <QtCore/QRegularExpression>
#include <QtCore/QStringList>

inline QString operator""_s(const char* text, size_t size)
{
    return QString::fromUtf8(text, int(size));
}

// Lines with every writer-made time ("yyyy-MM-dd hh:mm:ss") shown as "T".
inline QStringList withoutTimes(QStringList lines)
{
    static const QRegularExpression time("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d"_s);
    return lines.replaceInStrings(time, "T"_s);
}

#endif // TST_LOGFILES_SUPPORT_H
