#include "localeencoding.h"

#include <QtCore/QFile>
#include <QtCore/QSettings>
#include <QtCore/QTextStream>

#include <algorithm>
#include <atomic>
#include <utility>

#ifdef Q_OS_LINUX
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace localeencoding {

namespace {

bool isAscii(const char* text, qsizetype size)
{
    return std::all_of(text, text + size, [](char c) { return (c & 0x80) == 0; });
}

} // namespace

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0) // Qt 5: the locale's codec itself

namespace {

constexpr int asciiMib = 3;
constexpr int latin1Mib = 4;
constexpr int utf8Mib = 106;

} // namespace

// Without a codec (at exit) Qt falls back to Latin-1.
Encoder::Encoder() : _codec(QTextCodec::codecForLocale()), _state(QTextCodec::IgnoreHeader) {}

QByteArray Encoder::encode(const QChar* text, int size)
{
    return _codec ? _codec->fromUnicode(text, size, &_state)
                  : QString::fromRawData(text, size).toLatin1();
}

void useLocaleEncoding(QTextStream&) {}

bool isDecodableName(const char* name, int size)
{
    const QTextCodec* codec = QTextCodec::codecForLocale();
    if (codec == nullptr || codec->mibEnum() == latin1Mib)
        return true;
    if (codec->mibEnum() == asciiMib)
        return isAscii(name, size);
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    codec->toUnicode(name, size, &state);
    return state.invalidChars == 0 && state.remainingChars == 0;
}

QString iniString(const QSettings& settings, const QString& key, const QString& fallback)
{
    return settings.value(key, fallback).toString();
}

QString decodeListedName(const char* name, int size)
{
    const QTextCodec* codec = QTextCodec::codecForLocale();
    if (codec == nullptr)
        return QString::fromLatin1(name, size);
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    return codec->toUnicode(name, size, &state);
}

bool decodesAsciiAsLatin1()
{
    const QTextCodec* codec = QTextCodec::codecForLocale();
    return codec == nullptr || codec->mibEnum() == utf8Mib;
}

#else // Qt 6: UTF-8 on Unix, written and read back as Qt 5's UTF-8 codec does

Encoder::Encoder() : _system(QStringConverter::System) {}

// Qt 6's UTF-8 encoder writes U+FFFD for an unpaired surrogate where Qt 5's codec
// wrote "?", and Qt 5 kept a high surrogate that ends a text for the next one.
QByteArray Encoder::encode(const QChar* text, int size)
{
#ifndef Q_OS_UNIX
    return _system.encode(QStringView(text, size));
#else
    const QChar* end = text + size;
    if (_pendingHigh.isNull() && std::none_of(text, end, [](QChar c) { return c.isSurrogate(); }))
        return QStringView(text, size).toUtf8();
    QString fixed;
    fixed.reserve(size + 1);
    if (!_pendingHigh.isNull())
        fixed += std::exchange(_pendingHigh, QChar());
    fixed.append(text, size);
    for (qsizetype i = 0; i < fixed.size(); ++i) {
        const QChar c = fixed.at(i);
        if (c.isHighSurrogate() && i + 1 == fixed.size()) {
            _pendingHigh = c;
            fixed.chop(1);
        } else if (c.isHighSurrogate() && fixed.at(i + 1).isLowSurrogate()) {
            ++i;
        } else if (c.isSurrogate()) {
            fixed[i] = QLatin1Char('?');
        }
    }
    return fixed.toUtf8();
#endif
}

void useLocaleEncoding(QTextStream& stream)
{
    stream.setEncoding(QStringConverter::System);
}

bool isDecodableName(const char* name, int size)
{
    if (isAscii(name, size))
        return true;
    QStringDecoder decoder(QStringConverter::System, QStringConverter::Flag::Stateless);
    // The decoding runs when its result is taken.
    const QString decoded = decoder.decode(QByteArrayView(name, size));
    return !decoder.hasError();
}

// A file with bytes past ASCII is handed to QSettings once more, re-encoded from
// Latin-1 to UTF-8, from memory: Qt 6 reads that as Qt 5 reads the original.
QString iniString(const QSettings& settings, const QString& key, const QString& fallback)
{
#ifdef Q_OS_LINUX
    QFile file(settings.fileName());
    const QByteArray bytes = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    if (isAscii(bytes.constData(), bytes.size()))
        return settings.value(key, fallback).toString();
    const QByteArray asQt5Reads = QString::fromLatin1(bytes).toUtf8();
    const int fd = ::memfd_create("custom.ini", MFD_CLOEXEC);
    if (fd < 0)
        return settings.value(key, fallback).toString();
    // QSettings keeps what it read of a path while its size and time stay: a
    // time of its own per read.
    static std::atomic<int> reads{0};
    const timespec stamp{reads++, 0}, times[2]{stamp, stamp};
    QString value = fallback;
    if (::write(fd, asQt5Reads.constData(), size_t(asQt5Reads.size())) == asQt5Reads.size() &&
        ::futimens(fd, times) == 0) {
        const QSettings reencoded(QStringLiteral("/proc/self/fd/") + QString::number(fd),
                                  QSettings::IniFormat);
        value = reencoded.value(key, fallback).toString();
    }
    ::close(fd);
    return value;
#else
    return settings.value(key, fallback).toString();
#endif
}

QString decodeListedName(const char* name, int size)
{
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless |
                                                       QStringConverter::Flag::ConvertInitialBom);
    return decoder.decode(QByteArrayView(name, size));
}

bool decodesAsciiAsLatin1()
{
    return true; // UTF-8 on Unix; Windows names come as UTF-16
}

#endif

} // namespace localeencoding
