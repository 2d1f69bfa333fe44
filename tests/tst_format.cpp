// The text of user log lines, without a disk: the tag and print copy of every
// level in both entry forms, and how a header and a line are filled.
#include "testtree.h"
#include "userlog/writer/logformat.h"

#include <QtTest/QtTest>

#include <climits>

using namespace logformat;

class TestFormat : public QObject
{
    Q_OBJECT

private slots:
    void levels_data();
    void levels();
    void lines_data();
    void lines();
    void writerTime();
};

void TestFormat::levels_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("singleTag");
    QTest::addColumn<QString>("batchTag");
    QTest::addColumn<QString>("printedBy"); // the form whose entries are copied to the print file
    const struct
    {
        int level;
        const char *single, *batch, *printedBy;
    } rows[] = {
        {2, "info", "info", ""},        {3, "warn", "warn", ""},
        {4, "erro", "erro", ""},        {5, "log", "printinfo", "batch"},
        {6, "log", "log", "single"},    {0, "log", "log", ""},
        {1, "log", "log", ""},          {7, "log", "log", ""},
        {-1, "log", "log", ""},         {INT_MIN, "log", "log", ""},
        {INT_MAX, "log", "log", ""},    {0x100 + 6, "log", "log", ""}, // low bytes of 6 and 5
        {0x10000 + 5, "log", "log", ""}};
    for (const auto& row : rows)
        QTest::addRow("level %d", row.level)
            << row.level << QString::fromUtf8(row.single) << QString::fromUtf8(row.batch)
            << QString::fromUtf8(row.printedBy);
}

void TestFormat::levels()
{
    QFETCH(int, level);
    QFETCH(QString, singleTag);
    QFETCH(QString, batchTag);
    QFETCH(QString, printedBy);
    QCOMPARE(levelTag(level, EntryForm::Single), singleTag);
    QCOMPARE(levelTag(level, EntryForm::Batch), batchTag);
    QCOMPARE(isPrintEntry(level, EntryForm::Single), printedBy == "single"_s);
    QCOMPARE(isPrintEntry(level, EntryForm::Batch), printedBy == "batch"_s);
}

void TestFormat::lines_data()
{
    for (const char* column : {"pattern", "time", "block", "message", "line"})
        QTest::addColumn<QString>(column);
    const auto row = [](const char* name, const char* pattern, const char* time, const char* block,
                        const char* message, const char* line) {
        QTest::newRow(name) << QString::fromUtf8(pattern) << QString::fromUtf8(time)
                            << QString::fromUtf8(block) << QString::fromUtf8(message)
                            << QString::fromUtf8(line);
    };
    row("online header", "-- %1 --", "09:15", "MAIN", "Started",
        "-- 09:15 -- <MAIN> <info> Started");
    row("offline header", "**%1**", "09:15", "MAIN", "Started", "**09:15** <MAIN> <info> Started");
    row("markers and line breaks stay", "-- %1 --", "%L1 %2", "%1<%2>", " %1 50% \n%2 ",
        "-- %L1 %2 -- <%1<%2>> <info>  %1 50% \n%2 ");
    row("empty fields", "-- %1 --", "", "", "", "--  -- <> <info> ");
    row("pattern without a marker", "header", "09:15", "B", "m", "header <B> <info> m");
    row("pattern with two markers", "%1|%1", "t", "B", "m", "t|t <B> <info> m");
}

void TestFormat::lines()
{
    QFETCH(QString, pattern);
    QFETCH(QString, time);
    QFETCH(QString, block);
    QFETCH(QString, message);
    QFETCH(QString, line);
    QCOMPARE(userLogLine(fillHeader(pattern, time), block, "info"_s, message), line);
}

void TestFormat::writerTime()
{
    QCOMPARE(stateTimeText(QDateTime(QDate(2024, 3, 5), QTime(21, 7, 9))), "2024-03-05 21:07:09"_s);
}

QTEST_GUILESS_MAIN(TestFormat)
#include "tst_format.moc"
