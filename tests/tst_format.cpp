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
    void levels_data()
    {
        QTest::addColumn<int>("level");
        // The single entry's tag, the batch entry's, and the form copied to the print file.
        QTest::addColumn<QString>("tags");
        const QVector<QPair<int, const char*>> rows{
            {2, "info info -"},     {3, "warn warn -"},
            {4, "erro erro -"},     {5, "log printinfo batch"},
            {6, "log log single"},  {0, "log log -"},
            {1, "log log -"},       {7, "log log -"},
            {-1, "log log -"},      {INT_MIN, "log log -"},
            {INT_MAX, "log log -"}, {0x106, "log log -"}, // low bytes: 6
            {0x10005, "log log -"}};
        for (const auto& row : rows)
            QTest::addRow("level %d", row.first) << row.first << QString::fromUtf8(row.second);
    }

    void levels()
    {
        QFETCH(int, level);
        QFETCH(QString, tags);
        const QStringList expected = tags.split(' ');
        QCOMPARE(levelTag(level, EntryForm::Single), expected[0]);
        QCOMPARE(levelTag(level, EntryForm::Batch), expected[1]);
        QCOMPARE(isPrintEntry(level, EntryForm::Single), expected[2] == "single"_s);
        QCOMPARE(isPrintEntry(level, EntryForm::Batch), expected[2] == "batch"_s);
    }

    void lines_data()
    {
        for (const char* column : {"pattern", "time", "block", "message", "line"})
            QTest::addColumn<QString>(column);
        addRow("markers and line breaks stay", "-- %1 --", "%L1 %2", "%1<%2>", " %1 50% \n%2 ",
               "-- %L1 %2 -- <%1<%2>> <info>  %1 50% \n%2 ");
        addRow("empty fields", "-- %1 --", "", "", "", "--  -- <> <info> ");
    }

    void lines()
    {
        QFETCH(QString, pattern);
        QFETCH(QString, time);
        QFETCH(QString, block);
        QFETCH(QString, message);
        QFETCH(QString, line);
        QCOMPARE(userLogLine(fillHeader(pattern, time), block, "info"_s, message), line);
    }
};

QTEST_GUILESS_MAIN(TestFormat)
#include "tst_format.moc"
