#include "filenames.h"

#include <algorithm>
#include <cstring>

namespace logfiles {

namespace {

const QLatin1String indexMarker("%1");
const QLatin1String txtSuffix(".txt");

// A name with an unpaired surrogate (Windows lets one into a file name) is
// matched by no name filter: QDir's regular expressions refuse such text.
// Checked only past the cheap tests, and only names with a surrogate at all
// need the full check.
bool matchableByFilter(QStringView name)
{
    const auto isSurrogate = [](QChar c) { return (c.unicode() & 0xF800) == 0xD800; };
    return std::none_of(name.begin(), name.end(), isSurrogate) || name.isValidUtf16();
}

// Case-insensitive tests, tried exactly first: the names this library makes
// match exactly, and an exact comparison costs a fraction of case folding. They
// run for every file of a full print directory at every event.
bool startsWithIgnoringCase(QStringView text, const QString& prefix)
{
    const bool exact =
        text.size() >= prefix.size() &&
        std::memcmp(text.data(), prefix.constData(), sizeof(QChar) * size_t(prefix.size())) == 0;
    return exact || text.startsWith(QStringView(prefix), Qt::CaseInsensitive);
}

bool endsWithIgnoringCase(QStringView text, QLatin1String suffix)
{
    const qsizetype start = text.size() - suffix.size();
    const auto sameChar = [](QChar c, char latin1) { return c == QLatin1Char(latin1); };
    const bool exact =
        start >= 0 && std::equal(text.begin() + start, text.end(), suffix.data(), sameChar);
    return exact || text.endsWith(suffix, Qt::CaseInsensitive);
}

// QString::lastIndexOf(c, from) for 0 <= from < text.size().
int lastIndexOf(QStringView text, QChar c, int from)
{
    while (from >= 0 && text[from] != c)
        --from;
    return from;
}

bool hasWildcards(const QString& prefix)
{
    return std::any_of(prefix.begin(), prefix.end(), [](QChar c) {
        return c == QLatin1Char('*') || c == QLatin1Char('?') || c == QLatin1Char('[');
    });
}

} // namespace

int readIndex(QStringView text, bool* ok)
{
    // Plain digit runs short enough not to overflow are read here: file names
    // carry little else, and toInt would first copy the text. Signs, blanks and
    // long runs go through toInt itself.
    constexpr int maxPlainDigits = 9;
    if (text.isEmpty() || text.size() > maxPlainDigits)
        return text.toString().toInt(ok);
    int value = 0;
    for (const QChar c : text) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return text.toString().toInt(ok);
        value = value * 10 + (c.unicode() - '0');
    }
    *ok = true;
    return value;
}

int indexOfLogFile(QStringView fileName)
{
    // Scanned by hand: it runs for every file of a user log directory at every event.
    int dot = 0;
    while (dot < fileName.size() && fileName[dot] != QLatin1Char('.'))
        ++dot;
    const int underscore = dot == 0 ? -1 : lastIndexOf(fileName, QLatin1Char('_'), dot - 1);
    bool ok = false;
    const int index = readIndex(fileName.mid(underscore + 1, dot - underscore - 1), &ok);
    return ok ? index : 0;
}

QString indexedFileName(const QString& pattern, qint64 index)
{
    // replace() rather than arg(): arg() complains about patterns without a marker.
    return QString(pattern).replace(indexMarker, QString::number(index));
}

QString datedFileName(const QString& prefix, qint64 index, const QDate& startDate)
{
    return prefix + QLatin1Char('_') + QString::number(index) + QLatin1Char('_') +
           startDate.toString(QStringLiteral("yyyy-MM-dd")) + txtSuffix;
}

bool isTxtFileName(QStringView fileName)
{
    return endsWithIgnoringCase(fileName, txtSuffix) && matchableByFilter(fileName);
}

DatedNameMatcher::DatedNameMatcher(const QString& prefix)
    : _prefix(prefix), _wildcards(hasWildcards(prefix))
{
    // A custom name that holds wildcards itself matches the way a directory's
    // name filter does.
    if (_wildcards)
        _filter = QRegularExpression(
            QRegularExpression::wildcardToRegularExpression(prefix + QStringLiteral("_*_*.txt")),
            QRegularExpression::CaseInsensitiveOption);
}

bool DatedNameMatcher::matches(QStringView fileName) const
{
    if (!_wildcards)
        return lastSeparator(fileName) >= 0 && matchableByFilter(fileName);
    // An invalid filter (an unmatched "[") matches nothing; asking it anyway
    // would print a warning for every file of every event.
    return _filter.isValid() && _filter.match(fileName.toString()).hasMatch();
}

bool DatedNameMatcher::indexOf(QStringView fileName, int* index) const
{
    if (!matches(fileName))
        return false;
    // The "_" that ends the index is the name's last: ".txt" holds none.
    const int start = _prefix.size() + 1;
    const int end = lastIndexOf(fileName, QLatin1Char('_'), int(fileName.size()) - 1);
    if (end <= start)
        return false;
    bool ok = false;
    *index = readIndex(fileName.mid(start, end - start), &ok);
    return ok;
}

// Without wildcards in the prefix: the last "_" before the ".txt" of a name
// that starts with prefix + "_", or -1 when the name does not match.
int DatedNameMatcher::lastSeparator(QStringView fileName) const
{
    const int start = _prefix.size() + 1;
    const int suffixStart = int(fileName.size()) - txtSuffix.size();
    if (suffixStart < start + 1 || fileName.at(start - 1) != QLatin1Char('_') ||
        !startsWithIgnoringCase(fileName, _prefix) || !endsWithIgnoringCase(fileName, txtSuffix))
        return -1;
    const int separator = lastIndexOf(fileName, QLatin1Char('_'), suffixStart - 1);
    return separator >= start ? separator : -1;
}

void LatestDatedChoice::offer(QStringView fileName)
{
    int index = 0;
    if (!_matcher.indexOf(fileName, &index) || index < _highest)
        return;
    // Only the few names that lead so far get a string of their own.
    const QString name = fileName.toString();
    const QString folded = name.toLower();
    // Names equal but for case can coexist on a case-sensitive file system;
    // their exact order decides, not the listing's.
    const int order = index > _highest ? -1 : folded.compare(_latestFolded);
    if (order < 0 || (order == 0 && name < _latestName)) {
        _highest = index;
        _latestName = name;
        _latestFolded = folded;
    }
}

} // namespace logfiles
