// The lnav format as a service engineer relies on it: lnav reads a replayed log
// tree, every line of every file with the level, time, block and body the line
// formats in the README give, one timeline across the directories, a CRLF copy
// alike, and lnav's own check accepts the format with its samples.
#include "testtree.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtTest/QtTest>

#include <algorithm>

namespace {

// What lnav should make of a file's lines, one "line|time|level|block|tag|address|body"
// per entry. A user-log line with another time text than "yyyy-MM-dd hh:mm:ss"
// keeps its level and takes the time of the entry before it, except a "log" line:
// that one, like a separator, continues the entry before it.
QStringList expectedEntries(const QStringList& lines)
{
    static const QRegularExpression user(
        R"(^(?:-- (.*?) --|\*\*(.*?)\*\*) <(.*?)> <(info|warn|erro|printinfo|log)> (.*)$)");
    static const QRegularExpression bcc(
        R"(^-- (\S+ \S+) -- ((?:bcc (connected) to|bcc connection with .* is (broken),|)"
        R"(tcp (lost) connection with|tcp connection with .* is (ok)$).*)$)");
    static const QRegularExpression wellFormed(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d$)");
    QStringList entries;
    QString time; // of the last entry
    for (int i = 0; i < lines.size(); ++i) {
        const QRegularExpressionMatch u = user.match(lines[i]), b = bcc.match(lines[i]);
        const QString ownTime = u.captured(1) + u.captured(2) + b.captured(1);
        const QString tag =
            u.captured(4) + b.captured(3) + b.captured(4) + b.captured(5) + b.captured(6);
        const bool timed = wellFormed.match(ownTime).hasMatch();
        if (!b.hasMatch() && !(u.hasMatch() && (timed || tag != "log"))) {
            if (!u.hasMatch() && !lines[i].startsWith("//---"))
                return {"not a line the library writes: " + lines[i]};
            if (!entries.isEmpty())
                entries.last() += "\n" + lines[i];
            continue;
        }
        time = timed ? ownTime + ".000" : time;
        const QString level = QStringList{"erro", "broken"}.contains(tag) ? "error"
                              : QStringList{"warn", "lost"}.contains(tag) ? "warning"
                                                                          : "info";
        entries << QString("%1|%2|%3|%4|%5|%6|%7")
                       .arg(QString::number(i), time, level, u.captured(3), tag,
                            b.hasMatch() ? "127.0.0.1" : "", u.captured(5) + b.captured(2));
    }
    return entries;
}

} // namespace

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

    // What row makes of each entry lnav shows for the files matching glob, in its
    // order, after command (by default one that changes nothing). The lines before
    // a file's first entry, which lnav shows as an entry of level unknown, are left
    // out.
    QStringList entries(const QString& glob, const QString& row,
                        const QString& command = ":hide-file nothing")
    {
        const QString query =
            ";SELECT " + row + " AS row FROM varnor_userlog WHERE log_level != 'unknown'";
        const QByteArray output =
            lnav({"-n", glob, "-c", command, "-c", query, "-c", ":write-json-to -"});
        QStringList rows;
        for (const QJsonValue& entry : QJsonDocument::fromJson(output).array())
            rows << entry["row"].toString();
        return output.startsWith("lnav failed") ? QStringList{output} : rows;
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

    // One file at a time, so that lnav's line numbers are the file's, then a CRLF
    // copy of it: a body of several lines keeps the CR of its inner line ends.
    void everyLineParsed()
    {
        QFETCH(QString, file);
        const QString row = "printf('%d|%s|%s|%s|%s|%s|%s', log_line, log_time, log_level, "
                            "block, tag, bcc_address, replace(log_body, char(13, 10), char(10)))";
        const QStringList expected = expectedEntries(readLines(file));
        QCOMPARE(entries(file, row), expected);
        QFile copy(_tree.root() + "/crlf-copy");
        QVERIFY(copy.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
                copy.write((readLines(file).join("\r\n") + "\r\n").toUtf8()) > 0);
        copy.close();
        QCOMPARE(entries(copy.fileName(), row), expected);
    }

    // The tree as one glob: every entry of every file, in time order across the
    // directories. (lnav hides a file whose first entry repeats an earlier file's, a
    // print file begun by the event that began a user log, until ":show-file *".)
    void mergedTimeline()
    {
        const QStringList times = entries(_tree.root() + "/log/*/*", "log_time", ":show-file *");
        int total = 0;
        for (const QString& file : qAsConst(_files))
            total += expectedEntries(readLines(file)).size();
        QCOMPARE(times.size(), total);
        QVERIFY(std::is_sorted(times.begin(), times.end()));
    }
};

QTEST_GUILESS_MAIN(TestLnav)
#include "tst_lnav.moc"
