#ifndef LOCALEENCODING_H
#define LOCALEENCODING_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

class QSettings;
class QTextStream;

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0) // QTextCodec left QtCore with Qt 6
#include <QtCore/QTextCodec>
#else
#include <QtCore/QStringEncoder>
#endif

// The locale's 8-bit encoding as Qt 5 applies it to log text and file names, with
// the same bytes from a Qt 6 build. Qt 6 takes the locale's encoding to be UTF-8 on
// Unix; so does Qt 5 under the UTF-8 and C locales that Linux systems run.
namespace localeencoding {

// What a QTextStream on a file writes under Qt 5: the locale's codec, no byte
// order mark, and one converter state for the stream's life, so that a surrogate
// pair split between two writes comes out whole; an unpaired surrogate becomes "?".
class Encoder
{
public:
    Encoder();
    QByteArray encode(const QChar* text, int size);

private:
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0) // the converter state type differs
    QTextCodec* _codec;
    QTextCodec::ConverterState _state;
#else
    QStringEncoder _system; // where the system encoding is not UTF-8 (Windows)
    QChar _pendingHigh;     // a high surrogate that ended the previous text
#endif
};

// Makes a stream write the locale's encoding, as a Qt 5 stream does by default
// (Qt 6 streams write UTF-8, not the ANSI code page, on Windows).
void useLocaleEncoding(QTextStream& stream);

// Whether Qt 5's directory iterator keeps a name read from the directory: the
// locale's codec decodes it without an invalid or incomplete sequence (under a
// UTF-8 locale: valid UTF-8; a leading byte order mark is kept as text).
bool isDecodableName(const char* name, int size);

// The string under key in an INI file's settings, read as Qt 5 reads it: the
// file's bytes outside escapes as Latin-1, where Qt 6 reads them as UTF-8.
QString iniString(const QSettings& settings, const QString& key, const QString& fallback);

// A name read from a directory as QDir gives it: a leading byte order mark is
// kept as text, where QFile::decodeName drops it.
QString decodeListedName(const char* name, int size);

// Whether QFile::decodeName reads an ASCII name as its bytes read as Latin-1.
bool decodesAsciiAsLatin1();

} // namespace localeencoding

#endif // LOCALEENCODING_H
