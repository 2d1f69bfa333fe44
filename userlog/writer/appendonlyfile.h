#ifndef APPENDONLYFILE_H
#define APPENDONLYFILE_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include "localeencoding.h"

#include <memory>
#include <optional>

class QFile;
class QTextStream;

// A log file opened for appending and written a line at a time, each line
// handed to the file in a write of its own: byte for byte, and write for
// write, what a QTextStream on a QFile in text mode writes when it is flushed
// after every line. On Unix the lines go straight to an O_APPEND descriptor:
// QFile would stat the file and ask its position at every open, and the stream
// costs more to set up than the line it writes. A failed write ends as it
// does there: nothing more goes out, but what QFile would still hold of a
// short line is tried once more at close.
class AppendOnlyFile
{
public:
    AppendOnlyFile();
    ~AppendOnlyFile();

    // Opens path write-only for appending, creating it if new.
    bool open(const QString& path);
    // Why open() failed: the framework's own text, in the local 8-bit encoding.
    QByteArray errorText() const;

    // A line that ends with its "\n": "<< line.chopped(1) << Qt::endl" on a stream.
    void writeLine(const QString& line);
    // "<< text" on a stream, then flush(): for text that brings its own "\n".
    void write(const QString& text);

    void close();

private:
    Q_DISABLE_COPY(AppendOnlyFile)

#ifdef Q_OS_UNIX
    void writeChunk(const QChar* text, int size);
    qint64 writeAll(const char* data, qint64 size);

    int _fd = -1;
    std::optional<localeencoding::Encoder> _encoder;
    QByteArray _unflushed;
    bool _failed = false;
#else
    QTextStream& stream();

    std::unique_ptr<QTextStream> _stream;
#endif
    // Unix: made only when the descriptor does not open, for the error text.
    std::unique_ptr<QFile> _file;
};

#endif // APPENDONLYFILE_H
