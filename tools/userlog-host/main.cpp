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

void printError(const QString& text)
{
    std::fprintf(stderr, "userlog-host: %s\n", text.toLocal8Bit().constData());
}

// Writes <root>/KRN/user/custom.ini, which the library reads at start-up and at
// every connect. Other keys already in the file are kept.
bool writeCustomLogName(const QString& root, const QString& name, QString& error)
{
    const QString dir = root + QStringLiteral("/KRN/user");
    QSettings settings(dir + QStringLiteral("/custom.ini"), QSettings::IniFormat);
    if (QDir().mkpath(dir)) {
        settings.setValue(QStringLiteral("CUSTOM_LOG_NAME"), name);
        settings.sync();
        if (settings.status() == QSettings::NoError)
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

} // namespace

int main(int argc, char** argv)
{
    // Before the first logger() call: the log thread needs it, and the library
    // hooks its quit-time flush to it.
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("userlog-host"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Replays a scenario of user log calls through libvarnor.userlog."));
    const QCommandLineOption helpOption({QStringLiteral("h"), QStringLiteral("help")},
                                        QStringLiteral("Show this help."));
    const QCommandLineOption rootOption(
        QStringLiteral("root"),
        QStringLiteral("Root of the log tree: logs go to DIR/log, settings come from "
                       "DIR/KRN/user/custom.ini. Default: a fresh temporary directory."),
        QStringLiteral("DIR"));
    const QCommandLineOption nameOption(
        QStringLiteral("custom-log-name"),
        QStringLiteral("Write CUSTOM_LOG_NAME=NAME into DIR/KRN/user/custom.ini before start."),
        QStringLiteral("NAME"));
    parser.addOptions({helpOption, rootOption, nameOption});
    parser.addPositionalArgument(QStringLiteral("scenario"),
                                 QStringLiteral("Scenario file; \"-\" or none: standard input."),
                                 QStringLiteral("[scenario]"));

    if (!parser.parse(QCoreApplication::arguments())) {
        printError(parser.errorText());
        return exitUsage;
    }
    if (parser.isSet(helpOption)) {
        std::printf("%s\n%s", parser.helpText().toLocal8Bit().constData(),
                    scenario::commandHelp().toLocal8Bit().constData());
        return 0;
    }
    const QStringList positional = parser.positionalArguments();
    if (positional.size() > 1 || (parser.isSet(rootOption) && parser.value(rootOption).isEmpty())) {
        printError(QStringLiteral("usage: userlog-host [--root DIR] [--custom-log-name NAME] "
                                  "[scenario]; see --help"));
        return exitUsage;
    }

    // The scenario path is relative to where the host was started: open it first.
    const QString scenarioPath = positional.value(0, QStringLiteral("-"));
    const bool fromStdin = scenarioPath == QLatin1String("-");
    const QString source = fromStdin ? QStringLiteral("<stdin>") : scenarioPath;
    QFile scenarioFile(fromStdin ? QString() : scenarioPath);
    const bool opened = fromStdin ? scenarioFile.open(stdin, QIODevice::ReadOnly)
                                  : scenarioFile.open(QIODevice::ReadOnly);
    if (!opened) {
        printError(QStringLiteral("cannot read ") + source + QStringLiteral(": ") +
                   scenarioFile.errorString());
        return exitFailure;
    }

    QString root = parser.value(rootOption);
    QTemporaryDir freshRoot(QDir::tempPath() + QStringLiteral("/userlog-host-XXXXXX"));
    if (root.isEmpty()) {
        if (!freshRoot.isValid()) {
            printError(QStringLiteral("cannot make a temporary directory: ") +
                       freshRoot.errorString());
            return exitFailure;
        }
        freshRoot.setAutoRemove(false); // the logs are the point of the run
        root = freshRoot.path();
    }
    root = QDir(root).absolutePath();
    std::printf("log tree: %s\n", QDir::toNativeSeparators(root).toLocal8Bit().constData());
    std::fflush(stdout);

    QString error;
    if ((parser.isSet(nameOption) && !writeCustomLogName(root, parser.value(nameOption), error)) ||
        !enterTree(root, error)) {
        printError(error);
        return exitFailure;
    }

    UserLog* log = UserLog::logger();
    ScenarioRunner runner(log);
    QTextStream in(&scenarioFile);
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0) // Qt 5 streams read the locale's codec by default
    in.setCodec("UTF-8");
#else
    in.setEncoding(QStringConverter::Utf8);
#endif
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
