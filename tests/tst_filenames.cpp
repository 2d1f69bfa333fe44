// What a log file's name says, without a disk: indexes, new names, and which
// names the directory filters take. Where a row is about a filter, QDir's own
// matching must agree with it too.
#include "testtree.h"
#include "userlog/writer/filenames.h"

#include <QtTest/QtTest>

#include <climits>

using namespace logfiles;

namespace {

// "a" + an unpaired high surrogate + rest: a name Windows allows and UTF-16 does not.
QString withLoneSurrogate(const QString& head, const QString& rest)
{
    return head + QChar(0xD800) + rest;
}

} // namespace

class TestFileNames : public QObject
{
    Q_OBJECT

private slots:
    void indexOfLogFile_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("index");
        const auto row = [](const char* rule, const QString& name, int index) {
            QTest::newRow(rule) << name << index;
        };
        row("after the last \"_\"", "user_log_file_12.txt"_s, 12);
        row("before the first \".\"", "user_log_file_12.old.txt"_s, 12);
        row("no \"_\": the whole base name", "12.txt"_s, 12);
        row("no extension", "user_log_file_5"_s, 5);
        row("letters", "bcc_log_file_x.txt"_s, 0);
        row("a dated name", "user_print_file_off_2_2025-05-26.txt"_s, 0);
        row("a sign", "u_+5.txt"_s, 5);
        row("negative", "u_-3.txt"_s, -3);
        row("the largest int", "u_2147483647.txt"_s, INT_MAX);
        row("the smallest int", "u_-2147483648.txt"_s, INT_MIN);
        row("one past the int range", "u_2147483648.txt"_s, 0);
        row("ten digits with leading zeros", "u_0000000012.txt"_s, 12);
        row("a non-ASCII digit", "u_\u0663.txt"_s, 0);
    }

    void indexOfLogFile()
    {
        QFETCH(QString, name);
        QFETCH(int, index);
        QCOMPARE(logfiles::indexOfLogFile(name), index);
    }

    // The next index of a full file at the top of the int range is named, not wrapped.
    void nameCountedPastTheIntRange()
    {
        QCOMPARE(indexedFileName("u_%1.txt"_s, qint64(INT_MAX) + 1), "u_2147483648.txt"_s);
    }

    void txtFilter_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("taken");
        QTest::newRow("lower case") << "a.txt"_s << true;
        QTest::newRow("upper case") << "REPORT.TXT"_s << true;
        QTest::newRow("one character differs") << "a.txz"_s << false;
        QTest::newRow("no dot") << "atxt"_s << false;
        QTest::newRow("shorter than the suffix") << "txt"_s << false;
        QTest::newRow("a surrogate pair") << "\U0001F600.txt"_s << true;
        QTest::newRow("an unpaired surrogate") << withLoneSurrogate("a"_s, ".txt"_s) << false;
    }

    void txtFilter()
    {
        QFETCH(QString, name);
        QFETCH(bool, taken);
        QCOMPARE(isTxtFileName(name), taken);
        QCOMPARE(QDir::match("*.txt"_s, name), taken);
    }

    void datedNames_data()
    {
        QTest::addColumn<QString>("prefix");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("matches");
        QTest::addColumn<int>("index"); // -1: matches, or not, without a valid index
        const auto row = [](const char* rule, const char* prefix, const QString& name, bool matches,
                            int index) {
            QTest::newRow(rule) << QString(prefix) << name << matches << index;
        };
        row("index and date", "user_print_file", "user_print_file_12_2025-05-26.txt"_s, true, 12);
        row("the offline files match without an index", "user_print_file",
            "user_print_file_off_0_2025-05-26.txt"_s, true, -1);
        row("an empty index", "user_print_file", "user_print_file__2025-05-26.txt"_s, true, -1);
        row("an empty date", "p", "p_3_.txt"_s, true, 3);
        row("past the int range", "p", "p_2147483648_x.txt"_s, true, -1);
        row("one \"_\" only", "p", "p_3.txt"_s, false, -1);
        row("no \"_\" after the prefix", "p", "px_3_x.txt"_s, false, -1);
        row("a wildcard in the prefix", "p*", "pa_3_x.txt"_s, true, 3);
        row("an invalid wildcard matches nothing", "p[", "p[_3_x.txt"_s, false, -1);
        row("an unpaired surrogate in the date", "p", withLoneSurrogate("p_3_"_s, ".txt"_s), false,
            -1);
        row("a surrogate pair in the date", "p", "p_3_\U0001F600.txt"_s, true, 3);
    }

    void datedNames()
    {
        QFETCH(QString, prefix);
        QFETCH(QString, name);
        QFETCH(bool, matches);
        QFETCH(int, index);
        const DatedNameMatcher matcher(prefix);
        int read = -1;
        QCOMPARE(matcher.matches(name), matches);
        QCOMPARE(matcher.indexOf(name, &read) ? read : -1, index);
        if (prefix != "p["_s) // QDir warns about the invalid filter
            QCOMPARE(QDir::match(prefix + "_*_*.txt"_s, name), matches);
    }
};

QTEST_GUILESS_MAIN(TestFileNames)
#include "tst_filenames.moc"
