#include "appendonlyfile.h"

#include "logfiles.h"

#include <QtCore/QFile>
#include <QtCore/QTextStream>

#ifdef Q_OS_UNIX
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#endif

AppendOnlyFile::AppendOnlyFile() = default;

AppendOnlyFile::~AppendOnlyFile()
{
    close();
}

QByteArray AppendOnlyFile::errorText() const
{
    return _file ? logfiles::openErrorText(*_file) : QByteArray();
}

#ifdef Q_OS_UNIX

namespace {

// A stream hands its text on once it holds more than this many characters.
constexpr int streamBufferSize = 16384;
// QFile keeps up to this many bytes in its buffer until flushed, and writes
// larger blocks at once.
constexpr int fileBufferSize = 16384;

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
        if (!logfiles::openForAppend(*_file))
            return false;
        _fd = _file->handle();
    }
    // As a new stream does: the locale's codec, no byte order mark.
    _encoder.emplace();
    return true;
}

void AppendOnlyFile::writeLine(const QString& line)
{
    // A stream hands on a line longer than its buffer before the "\n".
    const int size = line.size() - 1;
    if (size > streamBufferSize) {
        writeChunk(line.constData(), size);
        writeChunk(line.constData() + size, 1);
    } else {
        writeChunk(line.constData(), line.size());
    }
}

void AppendOnlyFile::write(const QString& text)
{
    writeChunk(text.constData(), text.size());
}

// One flush of a stream. The converter state lives as long as the file is open,
// as a stream's does; a stream whose write failed writes nothing more.
void AppendOnlyFile::writeChunk(const QChar* text, int size)
{
    if (_fd < 0 || _failed || size == 0)
        return;
    const QByteArray bytes = _encoder->encode(text, size);
    const qint64 written = writeAll(bytes.constData(), bytes.size());
    if (written == bytes.size())
        return;
    _failed = true;
    // What QFile could not flush of a buffered block stays in its buffer for
    // the flush at close.
    if (bytes.size() <= fileBufferSize)
        _unflushed = bytes.mid(int(std::max<qint64>(written, 0)));
}

// QFile's own loop: on through short writes, again after a signal; -1 when
// nothing was written.
qint64 AppendOnlyFile::writeAll(const char* data, qint64 size)
{
    qint64 written = 0;
    ssize_t result;
    do {
        result = ::write(_fd, data + written, size_t(size - written));
    } while ((result == -1 && errno == EINTR) || (result > 0 && (written += result) < size));
    return size > 0 && written == 0 ? -1 : written;
}

void AppendOnlyFile::close()
{
    if (_fd < 0)
        return;
    if (!_unflushed.isEmpty())
        writeAll(_unflushed.constData(), _unflushed.size());
    if (_file)
        _file->close();
    else
        ::close(_fd);
    _fd = -1;
    _unflushed.clear();
    _failed = false;
}

#else

bool AppendOnlyFile::open(const QString& path)
{
    close();
    _file = std::make_unique<QFile>(path);
    return logfiles::openForAppend(*_file);
}

QTextStream& AppendOnlyFile::stream()
{
    if (!_stream) {
        _stream = std::make_unique<QTextStream>(_file.get());
        localeencoding::useLocaleEncoding(*_stream);
    }
    return *_stream;
}

void AppendOnlyFile::writeLine(const QString& line)
{
    stream() << line.chopped(1) << Qt::endl;
}

void AppendOnlyFile::write(const QString& text)
{
    stream() << text;
    stream().flush();
}

void AppendOnlyFile::close()
{
    if (_stream)
        _stream->flush();
    _stream.reset();
    if (_file)
        _file->close();
}

#endif
