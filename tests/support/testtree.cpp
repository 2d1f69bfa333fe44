#include "testtree.h"

#include <QtCore/QDir>
#include <QtCore/QMutex>
#include <QtCore/QRegularExpression>
#include <QtCore/QTextCodec>

#include <cstdio>
#include <utility>

QString today()
{
    return QDate::currentDate().toString("yyyy-MM-dd"_s);
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

TestTree::~TestTree()
{
    QDir::setCurrent(_previousDir);
}

void TestTree::writeCustomLogName(const QString& name) const
{
    QFile ini(path("KRN/user/custom.ini"_s));
    if (QDir().mkpath(path("KRN/user"_s)) && ini.open(QIODevice::WriteOnly | QIODevice::Truncate))
        ini.write("CUSTOM_LOG_NAME=" + name.toUtf8() + "\n");
}

bool makeFile(const QString& path, qint64 size)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) &&
           file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           (size == 0 || file.resize(size));
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
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    // Through the codec itself: the QByteArray overloads stop at a NUL.
    QString text = QTextCodec::codecForLocale()->toUnicode(file.readAll());
    if (text.endsWith('\n'))
        text.chop(1);
    return text.isEmpty() ? QStringList() : text.split('\n');
}

QStringList fileNames(const QString& dir)
{
    return QDir(dir).entryList(QDir::Files, QDir::Name);
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
