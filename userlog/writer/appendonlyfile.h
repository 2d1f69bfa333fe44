#ifndef APPENDONLYFILE_H
#define APPENDONLYFILE_H

#include <QtCore/QByteArray>
#include <QtCore/QSet>
#include <QtCore/QString>

#include "localeencoding.h"

#include <memory>
#include <optional>

class QFile;
class QTextStream;

// The log files whose last write failed (a full disk, an I/O error). A failure
// is reported once per file until a write to it succeeds again, and the next
// line written to such a file starts on a line of its own, should the failed
// write have left half a line behind. Kept by the writer across events: no
// other state says which file a failed write tore.
class WriteFailures
{
public:
    bool contains(const QString& path) const { return _failed.contains(path); }
    // Reports the failure with its reason, unless this file's failure is reported already.
    void recordFailure(const QString& path, const QByteArray& reason);
    void recordSuccess(const QString& path);

private:
    QSet<QString> _failed;
};

// A log file opened for appending and written a line at a time, each line
// handed to the file in one write: byte for byte what a QTextStream on a QFile
// in text mode writes when it is flushed after every line. On Unix the lines go
// straight to an O_APPEND descriptor: QFile would stat the file and ask its
// position at every open, and the stream costs more to set up than the line it
// writes. After a failed write nothing more goes out until the next open.
class AppendOnlyFile
{
public:
    // failures may be null: then a failed write goes unreported.
    explicit AppendOnlyFile(WriteFailures* failures = nullptr);
    ~AppendOnlyFile();

    // Opens path write-only for appending, creating it if new.
    bool open(const QString& path);
    // Why open() failed: the framework's own text, in the local 8-bit encoding.
    QByteArray errorText() const;

    // A line that brings its own "\n".
    void writeLine(const QString& line);

    void close();

private:
    Q_DISABLE_COPY(AppendOnlyFile)

    bool isOpen() const;
    // The encoded text, all of it, or false with the reason.
    bool writeText(const QString& text, QByteArray* reason);

    WriteFailures* _failures;
    QString _path;
    bool _resumesAfterFailure = false;
    bool _writeFailed = false;
#ifdef Q_OS_UNIX
    int _fd = -1;
    std::optional<localeencoding::Encoder> _encoder;
#else
    std::unique_ptr<QTextStream> _stream;
#endif
    // Unix: made only when the descriptor does not open, for the error text.
    std::unique_ptr<QFile> _file;
};

#endif // APPENDONLYFILE_H
