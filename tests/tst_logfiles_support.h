// Small helpers shared by the spine's tests (log files, connection, facade).
#ifndef TST_LOGFILES_SUPPORT_H
#define TST_LOGFILES_SUPPORT_H

#include <QtCore/QDate>
#include <QtCore/QRegularExpression>
#include <QtCore/QString>
#include <QtTest/QTest>

#include <initializer_list>

inline QString operator""_s(const char* text, size_t size)
{
    return QString::fromUtf8(text, int(size));
}

inline QString today()
{
    return QDate::currentDate().toString(Qt::ISODate);
}

// Tables of text columns, one call per row.
inline void columns(std::initializer_list<const char*> names)
{
    for (const char* name : names)
        QTest::addColumn<QString>(name);
}

template <typename... Texts> void row(const char* name, const Texts*... texts)
{
    (QTest::newRow(name) << ... << QString::fromUtf8(texts));
}

// Lines with every writer-made time ("yyyy-MM-dd hh:mm:ss") shown as "T".
inline QStringList withoutTimes(QStringList lines)
{
    static const QRegularExpression time("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d"_s);
    return lines.replaceInStrings(time, "T"_s);
}

#endif // TST_LOGFILES_SUPPORT_H
