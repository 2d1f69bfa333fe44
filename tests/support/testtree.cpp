#include "testtree.h"

#include <QtCore/QMutex>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtCore/QSysInfo>

#ifdef Q_OS_WIN
#include <windows.h>
#endif

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <utility>

QString today()
{
    return QDate::currentDate().toString("yyyy-MM-dd"_s);
}

QString anyDay(const QString& pattern)
{
    const QFileInfo info(pattern);
    const QStringList found =
        info.dir().entryList({info.fileName()}, QDir::AllEntries | QDir::System);
    return found.size() == 1 ? info.dir().filePath(found.first()) : pattern;
}

QStringList withoutTimes(QStringList lines)
{
    static const QRegularExpression time("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d"_s);
    return lines.replaceInStrings(time, "T"_s);
}

TestTree::TestTree() : _previousDir(QDir::currentPath())
{
    _valid =
        _dir.isValid() && QDir().mkpath(path("app/bin"_s)) && QDir::setCurrent(path("app/bin"_s));
}

void TestTree::writeCustomLogName(const QString& name) const
{
    QFile ini(path("KRN/user/custom.ini"_s));
    if (QDir().mkpath(path("KRN/user"_s)) && ini.open(QIODevice::WriteOnly | QIODevice::Truncate))
        ini.write("CUSTOM_LOG_NAME=" + name.toUtf8() + "\n");
}

TestTree::~TestTree()
{
    QDir::setCurrent(_previousDir);
    removeTree(root()); // before QTemporaryDir, which cannot see every name
}

void removeTree(const QString& dir)
{
#ifdef Q_OS_WIN
    QDir(dir).removeRecursively();
#else
    std::error_code ignored;
    std::filesystem::remove_all(QFile::encodeName(dir).toStdString(), ignored);
#endif
}

bool makeFile(const QString& path, qint64 size)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) &&
           file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           (size == 0 || file.resize(size));
}

bool makeRawFile(const QByteArray& path, const QByteArray& contents)
{
    std::ofstream file(path.toStdString(), std::ios::binary);
    return bool(file.write(contents.constData(), contents.size()));
}

bool makeRawLink(const QByteArray& target, const QByteArray& link)
{
    std::error_code error;
    std::filesystem::create_symlink(target.toStdString(), link.toStdString(), error);
    return !error;
}

bool setFileTimes(const QString& path, const QDateTime& lastRead, const QDateTime& lastModified)
{
    QFile file(path);
    return file.open(QIODevice::ReadWrite) &&
           file.setFileTime(lastRead, QFileDevice::FileAccessTime) &&
           file.setFileTime(lastModified, QFileDevice::FileModificationTime);
}

QStringList readLines(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // With its size: Qt 5's QByteArray overload stops at a NUL.
    const QByteArray bytes = file.readAll();
    QString text = QString::fromLocal8Bit(bytes.constData(), bytes.size());
    const QString lineEnd = QSysInfo::kernelType() == "winnt"_s ? "\r\n"_s : "\n"_s;
    if (text.endsWith(lineEnd))
        text.chop(lineEnd.size());
    return text.isEmpty() ? QStringList() : text.split(lineEnd);
}

QStringList fileNames(const QString& dir)
{
    return QDir(dir).entryList(QDir::Files | QDir::System, QDir::Name);
}

std::shared_ptr<void> holdFile(const QString& path)
{
#ifdef Q_OS_WIN
    const HANDLE handle =
        CreateFileW(reinterpret_cast<const wchar_t*>(QDir::toNativeSeparators(path).utf16()),
                    GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    return handle == INVALID_HANDLE_VALUE ? nullptr : std::shared_ptr<void>(handle, CloseHandle);
#else
    if (QProcess::execute("mount"_s, {"--bind"_s, path, path}) != 0)
        return nullptr;
    return std::shared_ptr<void>(new QString(path), [](void* mounted) {
        QProcess::execute("umount"_s, {*static_cast<QString*>(mounted)});
        delete static_cast<QString*>(mounted);
    });
#endif
}

namespace {

QMutex capturedMutex;
QStringList captured;

void captureDebugMessage(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    QMutexLocker locker(&capturedMutex);
    if (type == QtDebugMsg)
        captured << message;
    else
        std::fprintf(stderr, "%s\n", qPrintable(message));
}

} // namespace

QStringList takeMessages()
{
    qInstallMessageHandler(captureDebugMessage);
    QMutexLocker locker(&capturedMutex);
    return std::exchange(captured, {});
}
