#ifndef BENCHTREE_H
#define BENCHTREE_H

#include <QtCore/QString>
#include <QtCore/QTemporaryDir>

#include <cstdint>

// A fresh log tree in a temporary directory with <root>/app/bin as the working
// directory, so the library's "../../log/..." paths land in <root>. The
// previous working directory comes back when the tree goes away.
class BenchTree
{
public:
    BenchTree();
    ~BenchTree();
    BenchTree(const BenchTree&) = delete;
    BenchTree& operator=(const BenchTree&) = delete;

    bool isValid() const { return _valid; }
    QString root() const { return _dir.path(); }
    // <root>/log/<name>
    QString logDir(const QString& name) const;

private:
    QTemporaryDir _dir;
    QString _previousDir;
    bool _valid = false;
};

// Directory contents that the writer benchmarks start from.
enum class DirState
{
    Empty, // the online directories exist and hold nothing
    Full   // 99 user-log files online, 499 dated print files in the online print directory
};

// Fills the online user-log and print directories of the current tree.
// currentFill is the size of the highest-numbered file of each directory.
bool prepareOnlineDirs(const BenchTree& tree, DirState state, qint64 currentFill = 0,
                       int printFiles = 499);

// Resident set size of this process now, and its peak so far, in bytes.
std::int64_t currentRssBytes();
std::int64_t peakRssBytes();

#endif // BENCHTREE_H
