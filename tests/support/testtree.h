// What every test shares: a fresh log tree as the working directory, files
// made and read back, and the library's debug messages captured.
#ifndef TESTTREE_H
#define TESTTREE_H

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

#include <memory>

inline QString operator""_s(const char* text, size_t size)
{
    return QString::fromUtf8(text, int(size));
}

// A data row of text columns: addRow("1 MiB stays", "u_3.txt", "").
template <typename... Texts> void addRow(const char* name, const Texts*... texts)
{
    (QTest::newRow(name) << ... << QString::fromUtf8(texts));
}

// Today's date as print file names carry it, "yyyy-MM-dd".
QString today();
// A dated file named with "*" for its date ("log/x/p_0_*.txt"): the one entry that
// matches, found on disk, since a run across midnight may have started it on either
// day; the pattern itself when nothing matches.
QString anyDay(const QString& pattern);

// The lines with every writer-made time ("yyyy-MM-dd hh:mm:ss") shown as "T".
QStringList withoutTimes(QStringList lines);

// <root>/app/bin becomes the working directory, so the library's "../../log/..."
// and "../../KRN/..." land in <root>. The previous one is restored at the end.
class TestTree
{
public:
    TestTree();
    ~TestTree();
    bool isValid() const { return _valid; }
    QString root() const { return _dir.path(); }
    // <root>/<relative>, e.g. path("log/online").
    QString path(const QString& relative) const { return root() + '/' + relative; }
    // Writes <root>/KRN/user/custom.ini with CUSTOM_LOG_NAME=<name>.
    void writeCustomLogName(const QString& name) const;

private:
    QTemporaryDir _dir;
    QString _previousDir;
    bool _valid = false;
};

// Removes dir and all below it, names that do not decode included.
void removeTree(const QString& dir);
// Creates the file (and its directory) holding size bytes.
bool makeFile(const QString& path, qint64 size = 0);
// A file or a symbolic link at a path of raw bytes, which need not decode: the
// names QFile cannot make.
bool makeRawFile(const QByteArray& path, const QByteArray& contents = {});
bool makeRawLink(const QByteArray& target, const QByteArray& link);
bool setFileTimes(const QString& path, const QDateTime& lastRead, const QDateTime& lastModified);
// The file's lines without their line ends, decoded as the library encodes them;
// empty when the file is missing. Lines end in CRLF on Windows and in LF elsewhere;
// any other line end stays in the text.
QStringList readLines(const QString& path);
// Names of the non-hidden entries in dir but directories (FIFOs and dangling
// links included), sorted.
QStringList fileNames(const QString& dir);

// Keeps the file from being deleted while the result lives: on Windows held open
// without sharing, as a viewer may hold a log; elsewhere bind-mounted over itself,
// which needs root. Null when that failed.
std::shared_ptr<void> holdFile(const QString& path);

// The debug messages of every thread since the previous call; the first call
// starts collecting them (other messages go on to stderr).
QStringList takeMessages();

#endif // TESTTREE_H
