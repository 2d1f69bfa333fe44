// The locale's encoding as the writer applies it: the bytes of log text, written out
// as Qt 5 gives them under a UTF-8 locale, so that a Qt 6 build is held to the same
// rows (where the build's Qt is Qt 5, its QTextStream is checked against them too),
// and the settings file's text as Qt 5's QSettings reads it.
#include "testtree.h"
#include "userlog/writer/localeencoding.h"

#include <QtCore/QBuffer>
#include <QtCore/QSettings>
#include <QtCore/QTextStream>
#include <QtTest/QtTest>

namespace {

// The encoder's rows hold UTF-8 locale bytes; the settings' rows hold for every locale.
bool localeIsUtf8()
{
    return QString(QChar(0xE9)).toLocal8Bit() == "\xc3\xa9";
}

const char notUtf8[] = "the rows hold UTF-8 locale bytes; this locale's encoding is another";

} // namespace

class TestLocaleEncoding : public QObject
{
    Q_OBJECT

private slots:
    // Each text is handed to one encoder in turn, as a stream flushes its writes.
    void encoder_data()
    {
        QTest::addColumn<QStringList>("texts");
        QTest::addColumn<QByteArray>("bytes");
        const QChar high(0xD83D), low(0xDE00);
        QTest::newRow("non-ASCII text as UTF-8, no byte order mark")
            << QStringList{"caf\u00e9 \u20ac"_s} << QByteArray("caf\xc3\xa9 \xe2\x82\xac");
        QTest::newRow("a surrogate pair as one character")
            << QStringList{"a"_s + high + low} << QByteArray("a\xf0\x9f\x98\x80");
        QTest::newRow("an unpaired low surrogate becomes ?")
            << QStringList{"a"_s + low + "b"_s} << QByteArray("a?b");
        QTest::newRow("two high surrogates in a row become ??")
            << QStringList{QString(high) + high + "x"_s} << QByteArray("??x");
        QTest::newRow("a pair split between two writes comes out whole")
            << QStringList{"a"_s + high, QString(low) + "b"_s}
            << QByteArray("a\xf0\x9f\x98\x80"
                          "b");
        QTest::newRow("a high surrogate ending a write, then a line end: ?")
            << QStringList{"a"_s + high, "\n"_s} << QByteArray("a?\n");
        QTest::newRow("a high surrogate ending the last write is not written")
            << QStringList{"a"_s + high} << QByteArray("a");
    }

    void encoder()
    {
        if (!localeIsUtf8())
            QSKIP(notUtf8);
        QFETCH(QStringList, texts);
        QFETCH(QByteArray, bytes);
        localeencoding::Encoder encoder;
        QByteArray written;
        for (const QString& text : texts)
            written += encoder.encode(text.constData(), int(text.size()));
        QCOMPARE(written, bytes);
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0) // Qt 5's own stream is the oracle of these rows
        QByteArray streamed;
        QBuffer buffer(&streamed);
        QVERIFY(buffer.open(QIODevice::WriteOnly));
        QTextStream stream(&buffer);
        for (const QString& text : texts)
            (stream << text).flush();
        QCOMPARE(streamed, bytes);
#endif
    }

    // The settings file's bytes as Qt 5's QSettings reads them.
    void iniString_data()
    {
        QTest::addColumn<QByteArray>("ini");
        QTest::addColumn<QString>("value");
        QTest::newRow("ASCII") << QByteArray("CUSTOM_LOG_NAME=cell_1\n") << "cell_1"_s;
        QTest::newRow("escapes") << QByteArray("CUSTOM_LOG_NAME=caf\\xe9\\x4e2d\n")
                                 << "caf\u00e9\u4e2d"_s;
        QTest::newRow("raw UTF-8 bytes read one by one as Latin-1")
            << QByteArray("[General]\nCUSTOM_LOG_NAME=caf\xc3\xa9\n") << "caf\u00c3\u00a9"_s;
        QTest::newRow("a raw Latin-1 byte")
            << QByteArray("CUSTOM_LOG_NAME=caf\xe9\n") << "caf\u00e9"_s;
        QTest::newRow("a byte order mark belongs to the first key")
            << QByteArray("\xef\xbb\xbf"
                          "CUSTOM_LOG_NAME=x\n")
            << "fallback"_s;
        QTest::newRow("a quoted value with raw bytes")
            << QByteArray("CUSTOM_LOG_NAME=\"a\xe9, b\"\n") << "a\u00e9, b"_s;
    }

    void iniString()
    {
        QFETCH(QByteArray, ini);
        QFETCH(QString, value);
        TestTree tree;
        QFile file(tree.path("custom.ini"_s));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(ini) == ini.size());
        file.close();
        const QSettings settings(file.fileName(), QSettings::IniFormat);
        QCOMPARE(localeencoding::iniString(settings, "CUSTOM_LOG_NAME"_s, "fallback"_s), value);
    }

    // Files of one size read one after the other each give their own value.
    void iniStringReadsEveryFileAfresh()
    {
        TestTree tree;
        for (const char last : {'a', 'b', 'c'}) {
            QFile file(tree.path("custom_%1.ini"_s.arg(QLatin1Char(last))));
            QVERIFY(file.open(QIODevice::WriteOnly) &&
                    file.write(QByteArray("CUSTOM_LOG_NAME=\xe9") + last) > 0);
            file.close();
            const QSettings settings(file.fileName(), QSettings::IniFormat);
            QCOMPARE(localeencoding::iniString(settings, "CUSTOM_LOG_NAME"_s, QString()),
                     QString(QChar(0xE9)) + QLatin1Char(last));
        }
    }
};

QTEST_GUILESS_MAIN(TestLocaleEncoding)
#include "tst_localeencoding.moc"
