// The lnav format as a service engineer relies on it: lnav reads a replayed log
// tree, every line of every file with the level, time, block and body the line
// formats in the README give, a CRLF copy alike, and lnav's own check accepts
// the format with its samples.
#include "testtree.h"

#include <QtTest/QtTest>

class TestLnav : public QObject
{
    Q_OBJECT

    // lnav's output; what it said when it failed.
    QByteArray lnav(const QStringList& arguments)
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(LNAV, arguments);
        const bool ok = process.waitForFinished(60000) &&
                        process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
        return (ok ? "" : "lnav failed: ") + process.readAll();
    }

    // The entries lnav shows for the files matching glob, in its order, after command
    // (by default one that changes nothing). The lines before a file's first entry,
    // which lnav shows as an entry of level unknown, are left out.
    QJsonArray entries(const QString& glob, const QString& command = ":hide-file nothing")
    {
        const QByteArray output =
            lnav({"-n", glob, "-c", command, "-c",
                  ";SELECT log_line, log_time, log_level, block, tag, bcc_address, log_body, "
                  "log_raw_text FROM varnor_userlog WHERE log_level != 'unknown'",
                  "-c", ":write-json-to -"});
        return output.startsWith("lnav failed") ? QJsonArray{QString(output)}
                                                : QJsonDocument::fromJson(output).array();
    }

    TestTree _tree;
    QStringList _files; // below <root>/log, sorted

private slots:
    // Replays the scenario. lnav keeps its state and configuration in a home of
    // its own in the tree (~/.lnav comes before any XDG_CONFIG_HOME), and finds
    // the format there.
    void initTestCase()
    {
        QVERIFY(_tree.isValid());
        const QString home = _tree.root() + "/lnav-home";
        QVERIFY(qputenv("HOME", home.toLocal8Bit()) && qputenv("TMPDIR", home.toLocal8Bit()));
        const QString formats = home + "/.lnav/formats/varnor_userlog";
        QVERIFY(QDir().mkpath(formats) && QFile::copy(LNAV_FORMAT, formats + "/userlog.json"));
        QFile scenario(LNAV_SCENARIO);
        QVERIFY(scenario.open(QIODevice::ReadOnly));
        QProcess host;
        host.start(USERLOG_HOST, {"--root", _tree.root(), "-"});
        host.write(scenario.readAll().replace("FILLER", QByteArray(1100000, 'x')));
        host.closeWriteChannel();
        QVERIFY(host.waitForFinished(60000) && host.exitCode() == 0);
        for (QDirIterator it(_tree.root() + "/log", QDir::Files, QDirIterator::Subdirectories);
             it.hasNext();)
            _files << it.next();
        _files.sort();
        // The user log and the print file rolled over.
        QCOMPARE(_files.filter(QRegularExpression("/user_(log|print)_file_1[_.]")).size(), 2);
    }

    // lnav -C checks every sample against the patterns and its level; -W adds that
    // each pattern has a sample and each sample matches one pattern only.
    void formatAccepted() { QCOMPARE(lnav({"-W", "-C"}), QByteArray()); }

    void everyLineParsed_data()
    {
        QTest::addColumn<QString>("file");
        for (const QString& file : _files)
            QTest::newRow(qPrintable(file.mid(_tree.root().size() + 1))) << file;
    }

    // One file at a time, so that lnav's line numbers are the file's. Each entry
    // spans its line and the lines that continue it (banner separators, and a
    // "<log>" line whose time is not "yyyy-MM-dd hh:mm:ss"); its fields are the
    // line's, its level follows the tag, and a line without a well-formed time
    // takes the time of the entry before. A CRLF copy reads the same.
    void everyLineParsed()
    {
        QFETCH(QString, file);
        static const QRegularExpression timed(
            R"(^(?:-- |\*\*)(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)(?: -- |\*\* ))");
        const QStringList lines = readLines(file);
        const QJsonArray rows = entries(file);
        QVERIFY2(!rows.isEmpty() && rows[0].isObject(), qPrintable(rows[0].toString()));
        const int first = rows[0]["log_line"].toInt();
        QCOMPARE(lines.mid(0, first).filter(QRegularExpression("^//-+$")).size(), first);
        const QMap<QString, QString> levels{
            {"erro", "error"}, {"broken", "error"}, {"warn", "warning"}, {"lost", "warning"}};
        QStringList raw;
        QString time;
        for (const QJsonValue& row : rows) {
            const QStringList text = row["log_raw_text"].toString().split('\n');
            const QString tag = row["tag"].toString(), body = row["log_body"].toString();
            for (const QString& line : text.mid(1))
                QVERIFY2(line.startsWith("//---") ||
                             (line.contains("> <log> ") && !timed.match(line).hasMatch()),
                         qPrintable(line));
            QVERIFY2(text.join('\n').endsWith(row["block"].isNull()
                                                  ? " -- " + body
                                                  : "<" + row["block"].toString() + "> <" + tag +
                                                        "> " + body),
                     qPrintable(text.join('\n')));
            const QString own = timed.match(text[0]).captured(1);
            time = own.isEmpty() ? time : own + ".000";
            QCOMPARE(row["log_time"].toString(), time);
            QCOMPARE(row["log_level"].toString(), levels.value(tag, "info"));
            QCOMPARE(row["bcc_address"].toString(), row["block"].isNull() ? "127.0.0.1" : "");
            raw << text;
        }
        QCOMPARE(raw, lines.mid(first));
        QFile copy(_tree.root() + "/crlf-copy");
        QVERIFY(copy.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
                copy.write((lines.join("\r\n") + "\r\n").toUtf8()) > 0);
        copy.close();
        QCOMPARE(QJsonDocument(entries(copy.fileName())).toJson().replace("\\r", ""),
                 QJsonDocument(rows).toJson());
    }
};

QTEST_GUILESS_MAIN(TestLnav)
#include "tst_lnav.moc"
