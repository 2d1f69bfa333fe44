#include "benchtree.h"

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QFile>

#include <fstream>
#include <string>

BenchTree::BenchTree() : _previousDir(QDir::currentPath())
{
    if (!_dir.isValid())
        return;
    const QString bin = _dir.path() + QStringLiteral("/app/bin");
    _valid = QDir().mkpath(bin) && QDir::setCurrent(bin);
}

BenchTree::~BenchTree()
{
    QDir::setCurrent(_previousDir);
}

QString BenchTree::logDir(const QString& name) const
{
    return _dir.path() + QStringLiteral("/log/") + name;
}

namespace {

bool makeFile(const QString& path, qint64 size, const QDateTime& lastRead)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    if (size > 0 && file.write(QByteArray(int(size), 'x')) != size)
        return false;
    // Distinct, scrambled last-read times keep the retention's choice well defined.
    return file.setFileTime(lastRead, QFileDevice::FileAccessTime);
}

} // namespace

bool prepareOnlineDirs(const BenchTree& tree, DirState state, qint64 currentFill, int printFiles)
{
    const QString online = tree.logDir(QStringLiteral("online"));
    const QString print = tree.logDir(QStringLiteral("useronline"));
    if (!QDir().mkpath(online) || !QDir().mkpath(print))
        return false;
    if (state == DirState::Empty)
        return true;

    const QDateTime base = QDateTime::currentDateTime().addDays(-30);
    const int userFiles = 99;
    for (int i = 0; i < userFiles; ++i) {
        const QString name = QStringLiteral("/user_log_file_%1.txt").arg(i);
        const qint64 size = i == userFiles - 1 ? currentFill : 64;
        if (!makeFile(online + name, size, base.addSecs((i * 7919) % userFiles)))
            return false;
    }
    for (int i = 0; i < printFiles; ++i) {
        const QString date = base.date().addDays(i / 20).toString(QStringLiteral("yyyy-MM-dd"));
        const QString name = QStringLiteral("/user_print_file_%1_%2.txt").arg(i).arg(date);
        const qint64 size = i == printFiles - 1 ? currentFill : 64;
        if (!makeFile(print + name, size, base.addSecs((i * 7919) % printFiles)))
            return false;
    }
    return true;
}

namespace {

std::int64_t statusField(const char* field)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string key = std::string(field) + ":";
    while (std::getline(status, line)) {
        if (line.compare(0, key.size(), key) == 0)
            return std::stoll(line.substr(key.size())) * 1024; // reported in kB
    }
    return -1;
}

} // namespace

std::int64_t currentRssBytes()
{
    return statusField("VmRSS");
}

std::int64_t peakRssBytes()
{
    return statusField("VmHWM");
}
