#include "appendonlyfile.h"

#include "logformat.h"

#include <QtCore/QDebug>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QTextStream>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#endif

namespace {

// QFile's own open, whose failure says why in the framework's words.
bool openForAppend(QFile& file)
{
    return file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text);
}

// Whether a failed write left the file's last line without its end. Costs a
// read of the file's last byte, so it is asked only of files whose last write
// failed. Only a regular file can hold half a line (not /dev/null or a FIFO),
// and one emptied or replaced since holds none.
bool endsMidLine(const QString& path)
{
    const QFileInfo info(path);
    if (!info.isFile() || info.size() == 0)
        return false;
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.seek(info.size() - 1) &&
           file.read(1) != QByteArrayLiteral("\n");
}

} // namespace

void WriteFailures::recordFailure(const QString& path, const QByteArray& reason)
{
    if (_failed.contains(path))
        return;
    _failed.insert(path);
    qDebug(logformat::message::writeError, path.toLocal8Bit().constData(), reason.constData());
}

void WriteFailures::recordSuccess(const QString& path)
{
    if (!_failed.isEmpty())
        _failed.remove(path);
}

AppendOnlyFile::AppendOnlyFile(WriteFailures* failures) : _failures(failures) {}

AppendOnlyFile::~AppendOnlyFile()
{
    close();
}

QByteArray AppendOnlyFile::errorText() const
{
    return _file ? _file->errorString().toLocal8Bit() : QByteArray();
}

void AppendOnlyFile::writeLine(const QString& line)
{
    if (!isOpen() || _writeFailed)
        return;
    // The first line after a failed write: a line cut short by it is ended
    // first, so that no line ever holds two entries.
    const bool endsCutLine = _resumesAfterFailure && endsMidLine(_path);
    _resumesAfterFailure = false;
    QByteArray reason;
    if (!writeText(endsCutLine ? QLatin1Char('\n') + line : line, &reason)) {
        _writeFailed = true;
        if (_failures)
            _failures->recordFailure(_path, reason);
        return;
    }
    if (_failures)
        _failures->recordSuccess(_path);
}

#ifdef Q_OS_UNIX

namespace {

// QFile's own loop: on through short writes, again after a signal. Returns
// how much was written; errno tells why it stopped short.
qint64 writeAll(int fd, const char* data, qint64 size)
{
    qint64 written = 0;
    while (written < size) {
        const ssize_t result = ::write(fd, data + written, size_t(size - written));
        if (result > 0)
            written += result;
        else if (result == 0 || errno != EINTR)
            break;
    }
    return written;
}

} // namespace

// A failed open is rare, and QFile then opens again itself so that its error
// text is exactly the framework's; should that open succeed, its descriptor
// serves.
bool AppendOnlyFile::open(const QString& path)
{
    close();
    _file.reset();
    _fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC,
                 0666);
    if (_fd < 0) {
        _file = std::make_unique<QFile>(path);
        if (!openForAppend(*_file))
            return false;
        _fd = _file->handle();
    }
    _path = path;
    _resumesAfterFailure = _failures && _failures->contains(path);
    // As a new stream does: the locale's encoding, no byte order mark.
    _encoder.emplace();
    return true;
}

bool AppendOnlyFile::isOpen() const
{
    return _fd >= 0;
}

bool AppendOnlyFile::writeText(const QString& text, QByteArray* reason)
{
    const QByteArray bytes = _encoder->encode(text.constData(), text.size());
    errno = 0;
    if (writeAll(_fd, bytes.constData(), bytes.size()) == bytes.size())
        return true;
    // A write of 0 bytes sets no errno; the file system had no room for more.
    *reason = qt_error_string(errno != 0 ? errno : ENOSPC).toLocal8Bit();
    return false;
}

void AppendOnlyFile::close()
{
    if (_fd < 0)
        return;
    if (_file)
        _file->close();
    else
        ::close(_fd);
    _fd = -1;
    _writeFailed = false;
}

#else

bool AppendOnlyFile::open(const QString& path)
{
    close();
    _file = std::make_unique<QFile>(path);
    if (!openForAppend(*_file))
        return false;
    _path = path;
    _resumesAfterFailure = _failures && _failures->contains(path);
    return true;
}

bool AppendOnlyFile::isOpen() const
{
    return _file && _file->isOpen();
}

bool AppendOnlyFile::writeText(const QString& text, QByteArray* reason)
{
    if (!_stream) {
        _stream = std::make_unique<QTextStream>(_file.get());
        localeencoding::useLocaleEncoding(*_stream);
    }
    *_stream << text;
    _stream->flush();
    if (_stream->status() == QTextStream::Ok)
        return true;
    *reason = _file->errorString().toLocal8Bit();
    return false;
}

void AppendOnlyFile::close()
{
    _stream.reset();
    if (_file)
        _file->close();
    _writeFailed = false;
}

#endif
