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
        QTest::addColumn<QString>("singleTag");
        QTest::addColumn<QString>("batchTag");
        QTest::addColumn<bool>("singlePrinted");
        QTest::addColumn<bool>("batchPrinted");
        const auto row = [](const char* name, int level, const char* single, const char* batch,
                            bool singlePrinted, bool batchPrinted) {
            QTest::newRow(name) << level << QString(single) << QString(batch) << singlePrinted
                                << batchPrinted;
        };
        row("2 info", 2, "info", "info", false, false);
        row("3 warn", 3, "warn", "warn", false, false);
        row("4 erro", 4, "erro", "erro", false, false);
        row("5 printinfo, printed, in a batch only", 5, "log", "printinfo", false, true);
        row("6 printed as a single entry only", 6, "log", "log", true, false);
        // Every other value is a plain entry, also those whose low bytes read 5 or 6.
        for (const int level : {0, 1, 7, -1, INT_MIN, INT_MAX, 0x106, 0x10005})
            row(qPrintable(QString::number(level) + " plain"_s), level, "log", "log", false, false);
    }

    void levels()
    {
        QFETCH(int, level);
        QFETCH(QString, singleTag);
        QFETCH(QString, batchTag);
        QFETCH(bool, singlePrinted);
        QFETCH(bool, batchPrinted);
        QCOMPARE(levelTag(level, EntryForm::Single), singleTag);
        QCOMPARE(levelTag(level, EntryForm::Batch), batchTag);
        QCOMPARE(isPrintEntry(level, EntryForm::Single), singlePrinted);
        QCOMPARE(isPrintEntry(level, EntryForm::Batch), batchPrinted);
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
        QCOMPARE(userLogLine(pattern, time, block, "info"_s, message), line + '\n');
    }
};

QTEST_GUILESS_MAIN(TestFormat)
#include "tst_format.moc"
