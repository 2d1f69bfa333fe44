#include "scenario.h"

#include <QtNetwork/QHostAddress>

namespace scenario {

namespace {

constexpr int maxWaitMs = 600000;

const QString entryUsage = QStringLiteral("entry BLOCK TIME LEVEL MESSAGE");
const QString bccUsage = QStringLiteral("bcc up|down ADDRESS PORT MESSAGE");
const QString controllerUsage = QStringLiteral("controller connected|lost");
const QString listenUsage = QStringLiteral("listen [PORT]");
const QString waitUsage = QStringLiteral("wait MILLISECONDS");

QString usageError(const QString& usage)
{
    return QStringLiteral("expected: ") + usage;
}

QString quoted(const QString& text)
{
    return QLatin1Char('"') + text + QLatin1Char('"');
}

// Splits a line into blank-separated words. A word may be written in double
// quotes to hold blanks or be empty; inside quotes \" \\ \n and \t are escapes.
class Lexer
{
public:
    explicit Lexer(const QString& line) : _line(line) {}

    bool atEnd()
    {
        skipBlanks();
        return _pos >= _line.size();
    }

    QChar peek()
    {
        skipBlanks();
        return _pos < _line.size() ? _line.at(_pos) : QChar();
    }

    bool next(QString& word, QString& error)
    {
        skipBlanks();
        word.clear();
        if (_pos < _line.size() && _line.at(_pos) == QLatin1Char('"'))
            return quotedWord(word, error);
        while (_pos < _line.size() && !_line.at(_pos).isSpace())
            word += _line.at(_pos++);
        return true;
    }

    // The rest of the line as one text: a quoted word, or else the text as it
    // stands with the blanks at both ends removed.
    bool rest(QString& text, QString& error)
    {
        if (peek() == QLatin1Char('"')) {
            if (!next(text, error))
                return false;
            if (!atEnd()) {
                error = QStringLiteral("text after the quoted message");
                return false;
            }
            return true;
        }
        text = _line.mid(_pos).trimmed();
        _pos = _line.size();
        return true;
    }

private:
    void skipBlanks()
    {
        while (_pos < _line.size() && _line.at(_pos).isSpace())
            ++_pos;
    }

    bool quotedWord(QString& word, QString& error)
    {
        ++_pos; // opening quote
        while (_pos < _line.size()) {
            const QChar c = _line.at(_pos++);
            if (c == QLatin1Char('"')) {
                if (_pos < _line.size() && !_line.at(_pos).isSpace()) {
                    error = QStringLiteral("text right after a closing quote");
                    return false;
                }
                return true;
            }
            if (c == QLatin1Char('\\') && _pos < _line.size()) {
                const QChar escaped = _line.at(_pos++);
                word += escaped == QLatin1Char('n')   ? QChar(QLatin1Char('\n'))
                        : escaped == QLatin1Char('t') ? QChar(QLatin1Char('\t'))
                                                      : escaped;
                continue;
            }
            word += c;
        }
        error = QStringLiteral("unterminated quote");
        return false;
    }

    QString _line;
    int _pos = 0;
};

bool parseNumber(const QString& text, int min, int max, int& value)
{
    bool ok = false;
    const int number = text.toInt(&ok, 10);
    if (!ok || number < min || number > max)
        return false;
    value = number;
    return true;
}

bool noMoreWords(Lexer& lexer, const QString& usage, QString& error)
{
    if (lexer.atEnd())
        return true;
    error = usageError(usage);
    return false;
}

bool parseController(Lexer& lexer, Command& command, QString& error)
{
    QString state;
    if (!lexer.next(state, error))
        return false;
    if (state.isEmpty()) {
        error = usageError(controllerUsage);
        return false;
    }
    if (state != QLatin1String("connected") && state != QLatin1String("lost")) {
        error = QStringLiteral("controller state must be \"connected\" or \"lost\", not ") +
                quoted(state);
        return false;
    }
    command.kind = Kind::Controller;
    command.up = state == QLatin1String("connected");
    return noMoreWords(lexer, controllerUsage, error);
}

bool parseEntry(Lexer& lexer, Command& command, QString& error)
{
    QString block;
    QString time;
    QString level;
    if (!lexer.next(block, error))
        return false;
    // A quoted "now" is the literal text, a bare one the current time.
    const bool timeQuoted = lexer.peek() == QLatin1Char('"');
    if (!lexer.next(time, error) || !lexer.next(level, error))
        return false;
    if (level.isEmpty() || lexer.atEnd()) {
        error = usageError(entryUsage);
        return false;
    }
    if (!parseLevel(level, command.level)) {
        error = QStringLiteral("unknown level ") + quoted(level) +
                QStringLiteral(" (info, warn, error, printinfo, print, log or a number)");
        return false;
    }
    command.kind = Kind::Entry;
    command.block = block;
    command.timeIsNow = !timeQuoted && time == QLatin1String("now");
    if (!command.timeIsNow)
        command.time = time;
    return lexer.rest(command.message, error);
}

bool parseBcc(Lexer& lexer, Command& command, QString& error)
{
    QString state;
    QString port;
    if (!lexer.next(state, error) || !lexer.next(command.address, error) ||
        !lexer.next(port, error))
        return false;
    if (port.isEmpty() || lexer.atEnd()) {
        error = usageError(bccUsage);
        return false;
    }
    if (state != QLatin1String("up") && state != QLatin1String("down")) {
        error = QStringLiteral("bcc state must be \"up\" or \"down\", not ") + quoted(state);
        return false;
    }
    if (!isLoopbackAddress(command.address)) {
        error = QStringLiteral("bcc address ") + quoted(command.address) +
                QStringLiteral(" is not a loopback address (127.x.x.x, ::1 or localhost)");
        return false;
    }
    command.portIsListenPort = port == QLatin1String("$port");
    if (!command.portIsListenPort && !parseNumber(port, 0, 65535, command.port)) {
        error =
            QStringLiteral("bad port ") + quoted(port) + QStringLiteral(" (0 to 65535, or $port)");
        return false;
    }
    command.kind = Kind::Bcc;
    command.up = state == QLatin1String("up");
    return lexer.rest(command.message, error);
}

bool parseListen(Lexer& lexer, Command& command, QString& error)
{
    QString port;
    if (!lexer.next(port, error))
        return false;
    if (!port.isEmpty() && !parseNumber(port, 0, 65535, command.port)) {
        error = QStringLiteral("bad port ") + quoted(port) + QStringLiteral(" (0 to 65535)");
        return false;
    }
    command.kind = Kind::Listen;
    return noMoreWords(lexer, listenUsage, error);
}

bool parseWait(Lexer& lexer, Command& command, QString& error)
{
    QString msecs;
    if (!lexer.next(msecs, error))
        return false;
    if (msecs.isEmpty()) {
        error = usageError(waitUsage);
        return false;
    }
    if (!parseNumber(msecs, 0, maxWaitMs, command.msecs)) {
        error = QStringLiteral("bad wait ") + quoted(msecs) +
                QStringLiteral(" (milliseconds, 0 to %1)").arg(maxWaitMs);
        return false;
    }
    command.kind = Kind::Wait;
    return noMoreWords(lexer, waitUsage, error);
}

} // namespace

bool parseLine(const QString& line, Command& command, QString& error)
{
    command = Command();
    Lexer lexer(line);
    if (lexer.atEnd() || lexer.peek() == QLatin1Char('#'))
        return true;
    QString name;
    if (!lexer.next(name, error))
        return false;
    if (name == QLatin1String("controller"))
        return parseController(lexer, command, error);
    if (name == QLatin1String("entry"))
        return parseEntry(lexer, command, error);
    if (name == QLatin1String("bcc"))
        return parseBcc(lexer, command, error);
    if (name == QLatin1String("listen"))
        return parseListen(lexer, command, error);
    if (name == QLatin1String("wait"))
        return parseWait(lexer, command, error);

    // The commands without arguments.
    const struct
    {
        const char* name;
        Kind kind;
    } plain[] = {{"batch", Kind::BatchBegin},
                 {"end", Kind::BatchEnd},
                 {"unlisten", Kind::Unlisten},
                 {"flush", Kind::Flush}};
    for (const auto& candidate : plain) {
        if (name == QLatin1String(candidate.name)) {
            command.kind = candidate.kind;
            return noMoreWords(lexer, name, error);
        }
    }
    error = QStringLiteral("unknown command ") + quoted(name);
    return false;
}

bool parseLevel(const QString& text, int& level)
{
    const struct
    {
        const char* name;
        int level;
    } names[] = {{"log", 1},   {"info", 2},      {"warn", 3},
                 {"error", 4}, {"printinfo", 5}, {"print", 6}};
    for (const auto& candidate : names) {
        if (text == QLatin1String(candidate.name)) {
            level = candidate.level;
            return true;
        }
    }
    bool ok = false;
    const int number = text.toInt(&ok, 10);
    if (ok)
        level = number;
    return ok;
}

bool isLoopbackAddress(const QString& address)
{
    return address.isEmpty() || address == QLatin1String("localhost") ||
           QHostAddress(address).isLoopback();
}

QString commandHelp()
{
    return QStringLiteral(
        "Scenario commands, one per line (blank lines and lines starting with # are skipped):\n"
        "  controller connected|lost          report the controller connection\n"
        "  entry BLOCK TIME LEVEL MESSAGE     log one entry; TIME \"now\" is the current time\n"
        "  batch                              start a batch: the following entry lines\n"
        "  end                                are collected and logged as one batch at end\n"
        "  bcc up|down ADDRESS PORT MESSAGE   report the bcc link (loopback addresses only);\n"
        "                                     a down report starts four probes, 500 ms apart\n"
        "  listen [PORT]                      accept connections on 127.0.0.1 (no PORT: a free\n"
        "                                     one); a bcc line may then name it as $port\n"
        "  unlisten                           stop accepting: the port refuses from now on\n"
        "  wait MILLISECONDS                  pause; probe lines need it, flush does not wait\n"
        "  flush                              wait until every call so far is written\n"
        "LEVEL is info, warn, error, printinfo (5), print (6), log (1) or a number.\n"
        "Put a word in double quotes to hold blanks, e.g. \"2024-05-06 09:15:02\";\n"
        "inside quotes \\\" \\\\ \\n and \\t are escapes.\n");
}

} // namespace scenario
