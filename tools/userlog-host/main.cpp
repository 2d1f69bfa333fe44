// userlog-host: replays a scenario of host calls through libvarnor.userlog,
// using only its public header, the way the pendant application calls it.
#include "runner.h"
#include "scenario.h"

#include <userlog/userlog.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QSettings>
#include <QtCore/QTemporaryDir>
#include <QtCore/QTextStream>

#include <cstdio>

namespace {

constexpr int exitFailure = 1;
constexpr int exitUsage = 2;
const QLatin1String rootOption("root");
const QLatin1String nameOption("custom-log-name");

void printError(const QString& text)
{
    std::fprintf(stderr, "userlog-host: %s\n", text.toLocal8Bit().constData());
}

// What the command line asks for.
struct Options
{
    QString root; // empty: a fresh temporary directory
    bool setCustomLogName = false;
    QString customLogName;
    QString scenarioPath; // "-": standard input
};

// The options and the argument as --help tells them.
void describeCommandLine(QCommandLineParser& parser)
{
    parser.setApplicationDescription(
        QStringLiteral("Replays a scenario of user log calls through libvarnor.userlog."));
    parser.addOptions({
        {{QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Show this help.")},
        {rootOption,
         QStringLiteral("Root of the log tree: logs go to DIR/log, settings come from "
                        "DIR/KRN/user/custom.ini. Default: a fresh temporary directory."),
         QStringLiteral("DIR")},
        {nameOption,
         QStringLiteral("Write CUSTOM_LOG_NAME=NAME into DIR/KRN/user/custom.ini before start."),
         QStringLiteral("NAME")},
    });
    parser.addPositionalArgument(QStringLiteral("scenario"),
                                 QStringLiteral("Scenario file; \"-\" or none: standard input."),
                                 QStringLiteral("[scenario]"));
}

// Reads the command line into options. Returns false when the host is to stop
// at once with exitCode: 0 after the help, exitUsage after a usage error (told).
bool parseCommandLine(Options& options, int& exitCode)
{
    QCommandLineParser parser;
    describeCommandLine(parser);
    exitCode = exitUsage;
    if (!parser.parse(QCoreApplication::arguments())) {
        printError(parser.errorText());
        return false;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        std::printf("%s\n%s", parser.helpText().toLocal8Bit().constData(),
                    scenario::commandHelp().toLocal8Bit().constData());
        exitCode = 0;
        return false;
    }
    const QStringList positional = parser.positionalArguments();
    if (positional.size() > 1 || (parser.isSet(rootOption) && parser.value(rootOption).isEmpty())) {
        printError(QStringLiteral("usage: userlog-host [--root DIR] [--custom-log-name NAME] "
                                  "[scenario]; see --help"));
        return false;
    }
    options = {parser.value(rootOption), parser.isSet(nameOption), parser.value(nameOption),
               positional.value(0, QStringLiteral("-"))};
    return true;
}

// How errors name the scenario.
QString sourceName(const QString& scenarioPath)
{
    return scenarioPath == QLatin1String("-") ? QStringLiteral("<stdin>") : scenarioPath;
}

// The path is relative to where the host was started: the file is opened
// before the host moves into the tree.
bool openScenario(const QString& scenarioPath, QFile& file, QString& error)
{
    const bool fromStdin = scenarioPath == QLatin1String("-");
    if (!fromStdin)
        file.setFileName(scenarioPath);
    if (fromStdin ? file.open(stdin, QIODevice::ReadOnly) : file.open(QIODevice::ReadOnly))
        return true;
    error = QStringLiteral("cannot read ") + sourceName(scenarioPath) + QStringLiteral(": ") +
            file.errorString();
    return false;
}

bool makeFreshRoot(QString& root, QString& error)
{
    QTemporaryDir fresh(QDir::tempPath() + QStringLiteral("/userlog-host-XXXXXX"));
    if (!fresh.isValid()) {
        error = QStringLiteral("cannot make a temporary directory: ") + fresh.errorString();
        return false;
    }
    fresh.setAutoRemove(false); // the logs are the point of the run
    root = fresh.path();
    return true;
}

#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
// Qt 6's QSettings writes non-ASCII characters as raw UTF-8, which the library
// reads, as Qt 5 did, as Latin-1. Qt 5 wrote each UTF-16 unit as a \x escape
// (and a hex digit right after one as well, or it would join the escape), which
// both read alike: the file gets that form, so both builds name the same files.
bool escapeNonAsciiAsQt5(const QString& fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QString text = QString::fromUtf8(file.readAll());
    file.close();
    QByteArray escaped;
    bool afterEscape = false;
    for (const QChar c : text) {
        const bool hexDigit =
            c.isDigit() || (c.toLower() >= QLatin1Char('a') && c.toLower() <= QLatin1Char('f'));
        afterEscape = c.unicode() >= 0x80 || (afterEscape && hexDigit && c.unicode() < 0x80);
        if (afterEscape)
            escaped += "\\x" + QByteArray::number(c.unicode(), 16);
        else
            escaped += char(c.unicode());
    }
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           file.write(escaped) == escaped.size();
}
#endif

// Writes <root>/KRN/user/custom.ini, which the library reads at start-up and at
// every connect. Other keys already in the file are kept.
bool writeCustomLogName(const QString& root, const QString& name, QString& error)
{
    const QString dir = root + QStringLiteral("/KRN/user");
    QSettings settings(dir + QStringLiteral("/custom.ini"), QSettings::IniFormat);
    if (QDir().mkpath(dir)) {
        settings.setValue(QStringLiteral("CUSTOM_LOG_NAME"), name);
        settings.sync();
        bool written = settings.status() == QSettings::NoError;
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
        written = written && escapeNonAsciiAsQt5(settings.fileName());
#endif
        if (written)
            return true;
    }
    error = QStringLiteral("cannot write ") + settings.fileName();
    return false;
}

// The library writes "../../log/..." relative to the working directory, so the
// host runs in <root>/app/bin.
bool enterTree(const QString& root, QString& error)
{
    const QString bin = root + QStringLiteral("/app/bin");
    if (QDir().mkpath(bin) && QDir::setCurrent(bin))
        return true;
    error = QStringLiteral("cannot make or enter ") + bin;
    return false;
}

// Settles the root, tells it, writes the custom log name if one is asked for
// and moves into the tree.
bool prepareTree(const Options& options, QString& error)
{
    QString root = options.root;
    if (root.isEmpty() && !makeFreshRoot(root, error))
        return false;
    root = QDir(root).absolutePath();
    std::printf("log tree: %s\n", QDir::toNativeSeparators(root).toLocal8Bit().constData());
    std::fflush(stdout);
    if (options.setCustomLogName && !writeCustomLogName(root, options.customLogName, error))
        return false;
    return enterTree(root, error);
}

// Replays the scenario and waits until it is written; returns the exit code.
int runScenario(QFile& scenarioFile, const QString& source)
{
    UserLog* log = UserLog::logger();
    ScenarioRunner runner(log);
    QTextStream in(&scenarioFile);
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0) // Qt 5 streams read the locale's codec by default
    in.setCodec("UTF-8");
#else
    in.setEncoding(QStringConverter::Utf8);
#endif
    QString error;
    const bool ran = runner.run(in, source, error);
    // Everything before a bad line is on disk before the error is told.
    const bool flushed = log->flush(ScenarioRunner::flushTimeoutMs);
    if (!ran)
        printError(error);
    if (!flushed)
        printError(QStringLiteral("the final flush did not finish within %1 ms")
                       .arg(ScenarioRunner::flushTimeoutMs));
    return ran && flushed ? 0 : exitFailure;
}

} // namespace

int main(int argc, char** argv)
{
    // Before the first logger() call: the log thread needs it, and the library
    // hooks its quit-time flush to it.
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("userlog-host"));

    Options options;
    int exitCode = 0;
    if (!parseCommandLine(options, exitCode))
        return exitCode;
    QFile scenarioFile;
    QString error;
    if (!openScenario(options.scenarioPath, scenarioFile, error) || !prepareTree(options, error)) {
        printError(error);
        return exitFailure;
    }
    return runScenario(scenarioFile, sourceName(options.scenarioPath));
}
