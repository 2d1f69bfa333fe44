#include "runner.h"

#include <QtCore/QDateTime>
#include <QtCore/QEventLoop>
#include <QtCore/QTextStream>
#include <QtCore/QTimer>
#include <QtNetwork/QHostAddress>
#include <QtNetwork/QTcpServer>

using scenario::Command;
using scenario::Kind;

namespace {

// The form the library uses for the times it makes itself.
QString nowText()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
}

// Keeps the event loop running, so a listening socket can accept meanwhile.
void pause(int msecs)
{
    QEventLoop loop;
    QTimer::singleShot(msecs, &loop, &QEventLoop::quit);
    loop.exec();
}

} // namespace

ScenarioRunner::ScenarioRunner(UserLog* log) : _log(log) {}

ScenarioRunner::~ScenarioRunner() = default;

bool ScenarioRunner::run(QTextStream& in, const QString& source, QString& error)
{
    QString line;
    QString problem;
    _lineNumber = 0;
    while (in.readLineInto(&line)) {
        ++_lineNumber;
        Command command;
        if (!scenario::parseLine(line, command, problem) || !execute(command, problem)) {
            error = source + QLatin1Char(':') + QString::number(_lineNumber) +
                    QStringLiteral(": ") + problem;
            return false;
        }
    }
    if (_inBatch) {
        error = source + QLatin1Char(':') + QString::number(_batchLine) +
                QStringLiteral(": batch is not closed by \"end\"");
        return false;
    }
    return true;
}

bool ScenarioRunner::execute(const Command& command, QString& error)
{
    if (_inBatch && command.kind != Kind::Entry && command.kind != Kind::BatchEnd &&
        command.kind != Kind::Nothing) {
        error = QStringLiteral("only entry lines may stand between batch and end");
        return false;
    }
    switch (command.kind) {
    case Kind::Nothing:
        return true;
    case Kind::Controller:
        _log->connectedWithController(command.up);
        return true;
    case Kind::Entry:
        recordEntry(command);
        return true;
    case Kind::BatchBegin:
        beginBatch();
        return true;
    case Kind::BatchEnd:
        return endBatch(error);
    case Kind::Bcc:
        return recordBcc(command, error);
    case Kind::Listen:
        return startListening(command.port, error);
    case Kind::Unlisten:
        return stopListening(error);
    case Kind::Wait:
        pause(command.msecs);
        return true;
    case Kind::Flush:
        return flush(error);
    }
    return true;
}

void ScenarioRunner::recordEntry(const Command& command)
{
    const QString time = command.timeIsNow ? nowText() : command.time;
    if (_inBatch)
        _batch.append({time, command.block, command.message, command.level});
    else
        _log->recordLog(command.block, time, command.message, command.level);
}

void ScenarioRunner::beginBatch()
{
    _inBatch = true;
    _batchLine = _lineNumber;
    _batch.clear();
}

bool ScenarioRunner::endBatch(QString& error)
{
    if (!_inBatch) {
        error = QStringLiteral("end without batch");
        return false;
    }
    _inBatch = false;
    _log->recordLog(_batch);
    _batch.clear();
    return true;
}

bool ScenarioRunner::recordBcc(const Command& command, QString& error)
{
    if (command.portIsListenPort && _listenPort < 0) {
        error = QStringLiteral("$port used before listen");
        return false;
    }
    const int port = command.portIsListenPort ? _listenPort : command.port;
    _log->recordBccLog(command.up, command.address, static_cast<quint16>(port), command.message);
    return true;
}

bool ScenarioRunner::startListening(int port, QString& error)
{
    if (_server) {
        error = QStringLiteral("already listening on port %1").arg(_listenPort);
        return false;
    }
    auto server = std::make_unique<QTcpServer>();
    if (!server->listen(QHostAddress::LocalHost, static_cast<quint16>(port))) {
        error = QStringLiteral("cannot listen on 127.0.0.1 port %1: %2")
                    .arg(QString::number(port), server->errorString());
        return false;
    }
    _listenPort = server->serverPort();
    _server = std::move(server);
    return true;
}

bool ScenarioRunner::stopListening(QString& error)
{
    if (!_server) {
        error = QStringLiteral("unlisten without listen");
        return false;
    }
    _server.reset();
    return true;
}

bool ScenarioRunner::flush(QString& error)
{
    if (_log->flush(flushTimeoutMs))
        return true;
    error = QStringLiteral("flush did not finish within %1 ms").arg(flushTimeoutMs);
    return false;
}
