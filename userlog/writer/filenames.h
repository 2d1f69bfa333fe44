#ifndef FILENAMES_H
#define FILENAMES_H

#include <QtCore/QDate>
#include <QtCore/QRegularExpression>
#include <QtCore/QString>
#include <QtCore/QStringView>

// What a log file's name says and how a new one is named: pure arithmetic on
// names, no disk. Matching follows a directory name filter to the letter,
// since the resolvers must choose among exactly the files QDir would list.
namespace logfiles {

// "007" gives 7, " 12 " 12, "x" and "2147483648" are not valid: QString::toInt.
int readIndex(QStringView text, bool* ok);

// Index of any file in an indexed log directory: the text after the last "_"
// of the part before the first ".", or 0 when that is not a number.
// "user_log_file_12.old.txt" gives 12, "user_log_file_007.txt" 7, "readme.txt" 0.
int indexOfLogFile(QStringView fileName);

// ("user_log_file_%1.txt", 3) gives "user_log_file_3.txt". A pattern without
// "%1" is the file name for every index.
QString indexedFileName(const QString& pattern, qint64 index);

// ("user_print_file", 4, 2025-06-02) gives "user_print_file_4_2025-06-02.txt".
QString datedFileName(const QString& prefix, qint64 index, const QDate& startDate);

// Whether the name filter "*.txt" takes fileName: "REPORT.TXT" yes, "a.txt.log" no.
bool isTxtFileName(QStringView fileName);

// The print files of one prefix: names the filter prefix + "_*_*.txt" takes
// (case-insensitive), and the index each carries between prefix + "_" and the
// last "_". ("user_print_file_007_2025-05-26.txt", "user_print_file") gives 7;
// "user_print_file_off_0_2025-05-26.txt" matches but carries no index.
class DatedNameMatcher
{
public:
    explicit DatedNameMatcher(const QString& prefix);

    bool matches(QStringView fileName) const;
    // Whether fileName matches and carries a valid index, which index then gets.
    bool indexOf(QStringView fileName, int* index) const;

private:
    int lastSeparator(QStringView fileName) const;

    QString _prefix;
    // Made once per listing, when the prefix holds wildcards itself.
    QRegularExpression _filter;
    bool _wildcards = false;
};

// The current print file among the names offered: the highest valid index,
// ties going to the first in case-insensitive name order, then in exact name
// order. Offered ("p_3_b.txt", "P_3_a.txt", "p_2_c.txt"), "P_3_a.txt" leads.
class LatestDatedChoice
{
public:
    explicit LatestDatedChoice(const QString& prefix) : _matcher(prefix) {}

    void offer(QStringView fileName);
    // -1 while no name offered carried a valid index.
    int highestIndex() const { return _highest; }
    const QString& latestName() const { return _latestName; }

private:
    const DatedNameMatcher _matcher;
    QString _latestName;
    QString _latestFolded;
    int _highest = -1;
};

} // namespace logfiles

#endif // FILENAMES_H
