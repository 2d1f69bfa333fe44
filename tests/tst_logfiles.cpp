// File naming, resolution and retention of the log directories, the connection banners and
// the writer's slot interface, white-box.
#include "testtree.h"
#include "tst_logfiles_support.h"
#include "userlog/writer/logfiles.h"
#include "userlog/writer/userlogwriter.h"

#include <QtCore/QDir>
#include <QtCore/QMetaMethod>
#include <QtCore/QProcess>
#include <QtTest/QtTest>

#include <initializer_list>
#include <memory>

using namespace logfiles;

namespace {

const QString logDir = "../../log/dir"_s;

const QString today = QDate::currentDate().toString(Qt::ISODate);

// Tables of text columns, one call per row.
void columns(std::initializer_list<const char*> names)
{
    for (const char* name : names)
        QTest::addColumn<QString>(name);
}

template <typename... Texts> void row(const char* name, const Texts*... texts)
{
    (QTest::newRow(name) << ... << QString::fromUtf8(texts));
}

// Space-separated names; "u_[0-99].txt" stands for u_0.txt to u_99.txt.
QStringList expand(const QString& names)
{
    static const QRegularExpression range("\\[(\\d+)-(\\d+)\\]"_s);
    QStringList result;
    for (const QString& name : names.split(" "_s, Qt::SkipEmptyParts)) {
        const QRegularExpressionMatch m = range.match(name);
        if (!m.hasMatch())
            result << name;
        for (int i = m.captured(1).toInt(); m.hasMatch() && i <= m.captured(2).toInt(); ++i)
            result << QString(name).replace(m.capturedStart(), m.capturedLength(),
                                            QString::number(i));
    }
    return result;
}

// The name in an entry of makeEntries().
QString nameOf(const QString& entry)
{
    return entry.section(QRegularExpression("[=@]"_s), 0, 0);
}

// The lines that kinds stand for, times shown as "T": S start-up, C connected and L lost
// banner; E and e the entry that op 'e' writes, with the online and the offline header.
QStringList banners(const QString& kinds)
{
    const QString separator = "//---------------------------------"_s;
    const QString texts[] = {"**T** <user log> <log> krn user log systerm booted up!"_s,
                             "-- T -- <user log> <log> krn system connected with controller!"_s,
                             "**T** <user log> <log> krn system lost connection with controller!"_s,
                             "-- T -- <B> <log> x"_s, "**T** <B> <log> x"_s};
    QStringList lines;
    for (const QChar kind : kinds) {
        const QString text = texts["SCLEe"_s.indexOf(kind)];
        lines << (kind.toLower() == QLatin1Char('e') ? QStringList{text}
                                                     : QStringList{separator, text, separator});
    }
    return lines;
}

// A log file as the writer names it; "<today>" stands for today's date.
QString logFile(const QString& path)
{
    return "../../log/"_s + QString(path).replace("<today>"_s, today);
}

QStringList contents(const QString& path)
{
    return withoutTimes(readLines(logFile(path)));
}

const QString onUser = "online/user_log_file_0.txt"_s;
const QString onPrint = "useronline/user_print_file_0_<today>.txt"_s;
const QString offUser = "offline/user_print_file_off"_s;
const QString offPrint = "offline/user_print_file_off_0_<today>.txt"_s;

// Ops through the writer's slots by index: c connect and l lose (slot 1), n the no-argument
// loss (slot 2), C and S the forms (true, true) and (false, true) (slot 0), e an entry "x" of
// level 6, a print entry (slot 3). X makes a directory of the online print file, o removes it.
void apply(UserLogWriter& writer, const QString& ops)
{
    const QMetaObject& meta = UserLogWriter::staticMetaObject;
    const auto slot = [&](int index) { return meta.method(meta.methodOffset() + index); };
    for (const QChar op : ops) {
        const char o = op.toLatin1();
        bool done = false;
        if (o == 'X')
            done = QFile::remove(logFile(onPrint)) && QDir().mkpath(logFile(onPrint));
        else if (o == 'o')
            done = QDir().rmdir(logFile(onPrint));
        else if (o == 'e')
            done = slot(3).invoke(&writer, Qt::DirectConnection, Q_ARG(QString, "B"_s),
                                  Q_ARG(QString, "T"_s), Q_ARG(QString, "x"_s), Q_ARG(int, 6));
        else if (o == 'n')
            done = slot(2).invoke(&writer, Qt::DirectConnection);
        else if (o == 'c' || o == 'l')
            done = slot(1).invoke(&writer, Qt::DirectConnection, Q_ARG(bool, o == 'c'));
        else
            done = slot(0).invoke(&writer, Qt::DirectConnection, Q_ARG(bool, o == 'C'),
                                  Q_ARG(bool, true));
        QVERIFY2(done, qPrintable(QString(op)));
    }
}

} // namespace

class TestLogFiles : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        _tree.reset(new TestTree);
        QVERIFY(_tree->isValid());
    }
    void cleanup();
    void helpers_data();
    void helpers();
    void resolution_data();
    void resolution();
    void transitions_data();
    void transitions();
    void customName();
    void startUpFailures_data();
    void startUpFailures();
    void metaObjects();

private:
    QString dir() const { return _tree->logDir("dir"_s); }
    bool makeEntries(const QStringList& entries);

    std::unique_ptr<TestTree> _tree;
    QStringList _mounts;
};

void TestLogFiles::cleanup()
{
    for (const QString& target : qAsConst(_mounts))
        QProcess::execute("umount"_s, {target});
    _mounts.clear();
    _tree.reset();
}

// Makes entries in dir(), or outside it with "..": "name" an empty file, "name=size" one of
// that size ("=full": 1 MiB and 1 byte), "name/" a directory. After "@": r read a day before
// the other files, a number modified that many days before, l a link to a file instead of the
// file, b a file bind-mounted over it, so that it cannot be deleted (false if not allowed).
bool TestLogFiles::makeEntries(const QStringList& entries)
{
    const QDateTime now = QDateTime::currentDateTime();
    const QString target = _tree->root() + "/target"_s;
    makeFile(_tree->root(), "target"_s);
    for (const QString& entry : entries) {
        const QFileInfo file(QDir::cleanPath(dir() + "/"_s + nameOf(entry)));
        const QString flags = entry.section("@"_s, 1);
        const QString size = entry.section("="_s, 1).section("@"_s, 0, 0);
        QDir().mkpath(entry.endsWith("/"_s) ? file.filePath() : file.path());
        if (entry.endsWith("/"_s))
            continue;
        if (flags.contains("l"_s))
            QFile::link(target, file.filePath());
        else
            makeFile(file.path(), file.fileName(), size == "full"_s ? 1048577 : size.toLongLong());
        if (flags.contains("b"_s)) {
            if (QProcess::execute("mount"_s, {"--bind"_s, target, file.filePath()}) != 0)
                return false;
            _mounts << file.filePath();
        }
        if (flags.contains("r"_s) || flags.toInt() > 0)
            setFileTimes(file.filePath(), flags.contains("r"_s) ? now.addDays(-1) : now,
                         now.addDays(-flags.toInt()));
    }
    return true;
}

void TestLogFiles::helpers_data()
{
    // The row name is the call: "index <file name>", "name <pattern>" for index 3, "dated <file
    // name>" for prefix "print" ("no match", "no index" or the index read), "datedName <prefix>"
    // for index 4 on 2025-06-02.
    columns({"expected"});
    row("index user_log_file_12.old.txt", "12");
    row("index user_log_file_007.txt", "7");
    row("index 42.txt", "42");
    row("index log_5", "5");
    row("index bcc_log_file_x.txt", "0");
    row("index u_99999999999.txt", "0");
    row("name u_%1.txt", "u_3.txt");
    row("name off", "off");
    row("dated print_12_2025-05-26.txt", "12");
    row("dated print_007_2025-05-26.txt", "7");
    row("dated PRINT_3_2025-05-26.TXT", "3");
    row("dated print_-3_2025-05-26.txt", "-3");
    row("dated print_off_0_2025-05-26.txt", "no index");
    row("dated print__2025-05-26.txt", "no index");
    row("dated print_3_4_2025.txt", "no index");
    row("dated print_3.txt", "no match");
    row("dated print_.txt", "no match");
    row("dated print_3_2025-05-26.log", "no match");
    row("dated xprint_3_2025-05-26.txt", "no match");
    row("datedName print", "print_4_2025-06-02.txt");
}

void TestLogFiles::helpers()
{
    QFETCH(QString, expected);
    const QString call = QString::fromUtf8(QTest::currentDataTag());
    const QString kind = call.section(" "_s, 0, 0);
    const QString arg = call.section(" "_s, 1);
    int index = 0;
    const QString actual = kind == "index"_s       ? QString::number(indexOfLogFile(arg))
                           : kind == "name"_s      ? indexedFileName(arg, 3)
                           : kind == "datedName"_s ? datedFileName(arg, 4, QDate(2025, 6, 2))
                           : !matchesDatedPattern(arg, "print"_s)   ? "no match"_s
                           : datedFileIndex(arg, "print"_s, &index) ? QString::number(index)
                                                                    : "no index"_s;
    QCOMPARE(actual, expected);
}

void TestLogFiles::resolution_data()
{
    // call on ../../log/dir: "indexed <pattern>" (limit 100), "dated <prefix>" (limit 500) or
    // "delete" (the writer's slot deleteOldestFiles, limit 500); entries as makeEntries() makes
    // them; current: the file chosen, "-" when no directory is there after; deleted: the files
    // that must be gone, all others must be left.
    columns({"call", "entries", "current", "deleted"});
    row("indexed: directories made", "indexed u_%1.txt", "", "u_0.txt", "");
    row("indexed: directory cannot be made", "indexed u_%1.txt", "../../log", "-", "");
    row("indexed: a regular file at its path", "indexed u_%1.txt", "../dir", "u_0.txt", "");
    row("indexed: 1 MiB stays", "indexed u_%1.txt", "u_2.txt u_3.txt=1048576", "u_3.txt", "");
    row("indexed: past every full file", "indexed u_%1_a.txt", // each name reads as index 0
        "u_0_a.txt=full u_1_a.txt=full", "u_2_a.txt", "");
    row("indexed: numbers, leading zeros", "indexed u_%1.txt", "u_9.txt u_010.txt", "u_10.txt", "");
    row("indexed: 100, a stray", "indexed u_%1.txt", "u_[1-99].txt x", "u_99.txt", "x");
    row("indexed: 130 keep 99", "indexed u_%1.txt", "u_[0-129].txt", "u_129.txt", "u_[0-30].txt");
    row("indexed: hidden, directory", "indexed u_%1.txt", "u_[1-99].txt .u_0 u_0/", "u_99.txt", "");
    row("indexed: ties, oldest modified first", "indexed u_%1.txt",
        "u_[1-98].txt a.txt@1 m.txt@3 z.txt@2", "u_98.txt", "m.txt z.txt");
    row("indexed: undeletable", "indexed u_%1.txt", "u_[1-99].txt u_0.txt@b", "u_99.txt", "");
    row("indexed: no %1, over 1 MiB", "indexed off", "off=full", "off", "");
    row("dated: directories made", "dated p", "", "p_0_<today>.txt", "");
    row("dated: directory cannot be made", "dated p", "../../log", "-", "");
    row("dated: number, dates, 1 MiB", "dated p", "p_9_2025-05-10.txt p_10_2025-05-20.txt=1048576",
        "p_10_2025-05-20.txt", "");
    row("dated: full", "dated p", "p_3_2025-05-26.txt=full", "p_4_<today>.txt", "");
    row("dated: ties", "dated p", "P_3_b.txt p_3_a.txt p_3_c.txt", "p_3_a.txt", "");
    row("dated: no candidates", "dated p", "p_off_5_x.txt p_-3_x.txt p_8_x.txt@l p_9_x.txt/",
        "p_0_<today>.txt", "");
    row("dated: offline prefix", "dated p_off", "p_7_x.txt p_off_2_x.txt", "p_off_2_x.txt", "");
    row("dated: 501 .txt", "dated p", "f[0-498].txt p_1_x.txt p_2_x.txt@r", "p_1_x.txt",
        "p_2_x.txt");
    row("delete: 500 .txt", "delete", "f[1-499].txt a.txt@r", "", "");
    row("delete: 501, ties", "delete", "f[1-499].txt a.txt@r B.txt@r", "", "B.txt");
    row("delete: 502, one a call", "delete", "f[1-501].txt REPORT.TXT@r", "", "REPORT.TXT");
    row("delete: .log not counted", "delete", "f[1-500].txt a.log", "", "");
    row("delete: undeletable", "delete", "f[1-500].txt f0.txt@rb", "", "");
    row("delete: missing directory", "delete", "", "-", ""); // and not made
}

void TestLogFiles::resolution()
{
    QFETCH(QString, call);
    QFETCH(QString, entries);
    QFETCH(QString, current);
    QFETCH(QString, deleted);
    if (!makeEntries(expand(entries)))
        QSKIP("mount --bind failed; it needs root");
    QStringList kept;
    for (const QString& entry : expand(entries)) {
        if (!entry.contains("/"_s) && !expand(deleted).contains(nameOf(entry)))
            kept << nameOf(entry);
    }
    kept.sort();
    const QString kind = call.section(" "_s, 0, 0);
    const QString arg = call.section(" "_s, 1);
    const bool made = current != "-"_s;
    std::unique_ptr<UserLogWriter> writer(kind == "delete"_s ? new UserLogWriter : nullptr);
    MessageCapture capture;
    QString path = "unchanged"_s;
    QString expected = path;
    if (writer) {
        QVERIFY(QMetaObject::invokeMethod(writer.get(), "deleteOldestFiles", Q_ARG(QString, logDir),
                                          Q_ARG(int, 500)));
    } else if (kind == "indexed"_s) {
        QCOMPARE(resolveIndexedLogPath(arg, logDir, path, 100), made);
        if (made) // absolute, with the native separator before the name
            expected =
                QDir::cleanPath(QDir::currentPath() + "/"_s + logDir) + QDir::separator() + current;
    } else {
        QCOMPARE(resolveDatedLogPath(arg, logDir, path, 500), made);
        if (made)
            expected = logDir + "/"_s + current.replace("<today>"_s, today);
    }
    QCOMPARE(path, expected);
    QCOMPARE(capture.messages(), !made && !writer ? QStringList{"make log dir failed!"_s}
                                 : kind == "indexed"_s && entries.isEmpty()
                                     ? QStringList{"make log dir succeded!"_s}
                                     : QStringList());
    QCOMPARE(QDir(dir()).entryList(QDir::Files | QDir::Hidden, QDir::Name), kept);
    QCOMPARE(QFileInfo::exists(dir()), made);
}

void TestLogFiles::transitions_data()
{
    columns({"ops", "onlineUser", "onlinePrint", "offlineUser", "offlinePrint"});
    row("start-up; not connected: ignored", "l", "", "", "S", "S");
    row("connect; repeated: ignored", "cc", "C", "C", "S", "S");
    row("loss online, then user log offline", "clle", "CL", "CLe", "Se", "S");
    row("no-argument form is a loss", "cn", "CL", "CL", "S", "S");
    row("reconnect", "clce", "CLCE", "CLCE", "S", "S");
    row("(true, true) while online", "cC", "CC", "CC", "S", "S");
    row("(false, true) while online", "cSe", "C", "C", "SSe", "SSe");
    row("failed loss, next ignored, connect", "cXlolece", "CeCE", "eCE", "S", "S");
}

void TestLogFiles::transitions()
{
    QFETCH(QString, ops);
    QFETCH(QString, onlineUser);
    QFETCH(QString, onlinePrint);
    QFETCH(QString, offlineUser);
    QFETCH(QString, offlinePrint);
    UserLogWriter writer;
    apply(writer, ops);
    const QString files[] = {onUser, onPrint, offUser, offPrint};
    const QString kinds[] = {onlineUser, onlinePrint, offlineUser, offlinePrint};
    for (int i = 0; i < 4; ++i) {
        QVERIFY2(QFile::exists(logFile(files[i])) == !kinds[i].isEmpty(), qPrintable(files[i]));
        QCOMPARE(contents(files[i]), banners(kinds[i]));
    }
}

void TestLogFiles::customName()
{
    // Read at start-up and at every connect, not at a loss.
    _tree->writeCustomLogName("alpha"_s);
    UserLogWriter writer;
    _tree->writeCustomLogName("beta22"_s); // names of other lengths: no stale settings cache
    QTest::qSleep(1100);                   // a banner's time is that of its own state change
    apply(writer, "c"_s);
    _tree->writeCustomLogName("gam"_s);
    apply(writer, "leS"_s);
    QCOMPARE(contents("offline/alpha_off_0_<today>.txt"_s), banners("S"_s));
    QCOMPARE(contents("useronline/beta22_0_<today>.txt"_s), banners("CLe"_s));
    QCOMPARE(contents("offline/alpha_off"_s), banners("SeS"_s));
    QCOMPARE(contents("offline/gam_off_0_<today>.txt"_s), banners("S"_s));
    const QString connectedAt = readLines(logFile(onUser)).value(1).mid(3, 19);
    QVERIFY(connectedAt > readLines(logFile("offline/alpha_off"_s)).value(1).mid(2, 19));
}

void TestLogFiles::startUpFailures_data()
{
    QTest::addColumn<bool>("dirFails");
    QTest::newRow("log directory cannot be made") << true;
    QTest::newRow("print file cannot be opened") << false;
}

void TestLogFiles::startUpFailures()
{
    QFETCH(bool, dirFails);
    QFile print(logFile(offPrint));
    QVERIFY(dirFails ? makeFile(_tree->root(), "log"_s) : QDir().mkpath(print.fileName()));
    print.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text);
    const QString openError =
        "open log file error1(%1):%2"_s.arg(print.fileName(), print.errorString());
    MessageCapture capture;
    UserLogWriter writer;
    QCOMPARE(capture.messages(),
             (dirFails ? QStringList{"make log dir failed!"_s, "error, can not make log dir!"_s}
                       : QStringList{openError}));
    QCOMPARE(contents(offUser) + contents(offPrint), QStringList()); // no banner in either
}

void TestLogFiles::metaObjects()
{
    // Hosts and queued calls name these by index; moc lists quint16 as ushort.
    const auto methods = [](const QMetaObject& meta) {
        QStringList list;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            const QMetaMethod method = meta.method(i);
            list << QString::fromLatin1(method.methodSignature()) +
                        (method.methodType() == QMetaMethod::Signal ? ":signal"_s : QString()) +
                        (method.access() == QMetaMethod::Public ? QString() : ":protected"_s);
        }
        return list.join(" "_s);
    };
    QCOMPARE(methods(UserLogWriter::staticMetaObject),
             "setSystermConnectState(bool,bool) setSystermConnectState(bool) "
             "setSystermConnectState() receiveUserLogs(QString,QString,QString,int) "
             "receiveUserLogs(QString,QString,QString,UserLogLevel) "
             "receiveUserLogs(QList<LogInformation>) receiveBccLogs(bool,QString,ushort,QString) "
             "deleteOldestFiles(QString,int) checkTcpState():protected"_s);
    QCOMPARE(methods(UserLog::staticMetaObject),
             "sendUserLogs(QString,QString,QString,int):signal "
             "sendUserLogs(QList<LogInformation>):signal "
             "singalConnectedWithController(bool):signal "
             "sendBccConnectState(bool,QString,ushort,QString):signal"_s);
}

QTEST_GUILESS_MAIN(TestLogFiles)
#include "tst_logfiles.moc"
