#ifndef TESTTREE_H
#define TESTTREE_H

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QMutex>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>

#include <atomic>

// A fresh log tree in a temporary directory: <root>/app/bin becomes the working
// directory, so the library's "../../log/..." and "../../KRN/..." land in <root>.
// The previous working directory is restored when the tree goes away.
class TestTree
{
public:
    TestTree();
    ~TestTree();
    TestTree(const TestTree&) = delete;
    TestTree& operator=(const TestTree&) = delete;

    bool isValid() const { return _valid; }
    QString root() const { return _dir.path(); }
    // <root>/log/<name>, e.g. logDir("online").
    QString logDir(const QString& name) const;
    // Writes <root>/KRN/user/custom.ini with CUSTOM_LOG_NAME=<name>.
    void writeCustomLogName(const QString& name) const;

private:
    QTemporaryDir _dir;
    QString _previousDir;
    bool _valid = false;
};

// Creates dir (and parents) and a file name in it holding size bytes.
bool makeFile(const QString& dir, const QString& name, qint64 size = 0);
// Creates one file per name, each of size bytes.
bool makeFiles(const QString& dir, const QStringList& names, qint64 size = 0);
// Sets a file's last-read and last-modified times.
bool setFileTimes(const QString& path, const QDateTime& lastRead, const QDateTime& lastModified);
// The file's lines without their line ends; empty when the file is missing.
QStringList readLines(const QString& path);
// Names of the non-hidden files in dir, sorted.
QStringList fileNames(const QString& dir);

// Collects debug messages from every thread while it lives.
class MessageCapture
{
public:
    MessageCapture();
    ~MessageCapture();
    QStringList messages() const;
    // Waits until a message equal to text arrived, up to msecs.
    bool waitFor(const QString& text, int msecs = 5000) const;

private:
    static void handler(QtMsgType type, const QMessageLogContext& context, const QString& msg);
    static std::atomic<MessageCapture*> _active;
    mutable QMutex _mutex;
    QStringList _messages;
    QtMessageHandler _previous;
};

#endif // TESTTREE_H
