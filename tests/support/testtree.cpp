#include "testtree.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QMutexLocker>
#include <QtCore/QSettings>
#include <QtCore/QThread>

TestTree::TestTree() : _previousDir(QDir::currentPath())
{
    if (!_dir.isValid())
        return;
    const QString bin = _dir.path() + QStringLiteral("/app/bin");
    _valid = QDir().mkpath(bin) && QDir::setCurrent(bin);
}

TestTree::~TestTree()
{
    QDir::setCurrent(_previousDir);
}

QString TestTree::logDir(const QString& name) const
{
    return _dir.path() + QStringLiteral("/log/") + name;
}

void TestTree::writeCustomLogName(const QString& name) const
{
    const QString dir = _dir.path() + QStringLiteral("/KRN/user");
    QDir().mkpath(dir);
    QFile file(dir + QStringLiteral("/custom.ini"));
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write("CUSTOM_LOG_NAME=" + name.toUtf8() + "\n");
}

bool makeFile(const QString& dir, const QString& name, qint64 size)
{
    if (!QDir().mkpath(dir))
        return false;
    QFile file(dir + QLatin1Char('/') + name);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return size == 0 || file.resize(size);
}

bool makeFiles(const QString& dir, const QStringList& names, qint64 size)
{
    for (const QString& name : names) {
        if (!makeFile(dir, name, size))
            return false;
    }
    return true;
}

bool setFileTimes(const QString& path, const QDateTime& lastRead, const QDateTime& lastModified)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite))
        return false;
    return file.setFileTime(lastRead, QFileDevice::FileAccessTime) &&
           file.setFileTime(lastModified, QFileDevice::FileModificationTime);
}

QStringList readLines(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    QString text = QString::fromLocal8Bit(file.readAll());
    if (text.endsWith(QLatin1Char('\n')))
        text.chop(1);
    if (text.isEmpty())
        return {};
    return text.split(QLatin1Char('\n'));
}

QStringList fileNames(const QString& dir)
{
    return QDir(dir).entryList(QDir::Files, QDir::Name);
}

std::atomic<MessageCapture*> MessageCapture::_active{nullptr};

MessageCapture::MessageCapture()
{
    _active = this;
    _previous = qInstallMessageHandler(&MessageCapture::handler);
}

MessageCapture::~MessageCapture()
{
    qInstallMessageHandler(_previous);
    _active = nullptr;
}

QStringList MessageCapture::messages() const
{
    QMutexLocker locker(&_mutex);
    return _messages;
}

bool MessageCapture::waitFor(const QString& text, int msecs) const
{
    QDeadlineTimer deadline(msecs);
    while (!messages().contains(text)) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents();
        QThread::msleep(5);
    }
    return true;
}

void MessageCapture::handler(QtMsgType type, const QMessageLogContext& context, const QString& msg)
{
    MessageCapture* capture = _active;
    if (capture == nullptr)
        return;
    if (type == QtDebugMsg) {
        QMutexLocker locker(&capture->_mutex);
        capture->_messages.append(msg);
    }
    if (capture->_previous != nullptr)
        capture->_previous(type, context, msg);
}
