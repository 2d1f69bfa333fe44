#ifndef RUNNER_H
#define RUNNER_H

#include "scenario.h"

#include <userlog/userlog.h>

#include <QtCore/QList>
#include <QtCore/QString>

#include <memory>

class QTcpServer;
class QTextStream;

// Replays a scenario through the public UserLog interface, one line at a time,
// as the lines arrive (so a terminal can feed it by hand).
class ScenarioRunner
{
public:
    explicit ScenarioRunner(UserLog* log);
    ~ScenarioRunner();
    ScenarioRunner(const ScenarioRunner&) = delete;
    ScenarioRunner& operator=(const ScenarioRunner&) = delete;

    // Runs the lines of in until its end or the first bad line. On a bad line
    // returns false with error set to "<source>:<line>: <problem>"; the lines
    // before it have been handed to the library (an unfinished batch is not).
    bool run(QTextStream& in, const QString& source, QString& error);

    // How long a flush, the scenario's or the final one, may take.
    static constexpr int flushTimeoutMs = 30000;

private:
    // One command each; false with error set on a command that cannot run here.
    bool execute(const scenario::Command& command, QString& error);
    void recordEntry(const scenario::Command& command);
    void beginBatch();
    bool endBatch(QString& error);
    bool recordBcc(const scenario::Command& command, QString& error);
    bool startListening(int port, QString& error);
    bool stopListening(QString& error);
    bool flush(QString& error);

    UserLog* _log;
    std::unique_ptr<QTcpServer> _server;
    int _listenPort = -1; // stays known after "unlisten"
    int _lineNumber = 0;
    bool _inBatch = false;
    int _batchLine = 0;
    QList<LogInformation> _batch;
};

#endif // RUNNER_H
