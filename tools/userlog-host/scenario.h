#ifndef SCENARIO_H
#define SCENARIO_H

#include <QtCore/QString>

// Reading one line of a host scenario. Parsing is pure: a "now" time and the
// "$port" marker are kept as flags and filled in when the line runs.
namespace scenario {

enum class Kind
{
    Nothing, // blank line or comment
    Controller,
    Entry,
    BatchBegin,
    BatchEnd,
    Bcc,
    Listen,
    Unlisten,
    Wait,
    Flush,
};

struct Command
{
    Kind kind = Kind::Nothing;
    bool up = false; // controller connected, bcc link up
    QString block;
    QString time;
    bool timeIsNow = false;
    int level = 0;
    QString message;
    QString address;
    int port = 0;
    bool portIsListenPort = false; // "$port": the port that "listen" opened
    int msecs = 0;
};

// Parses one line. Blank lines and lines whose first non-blank character is
// '#' give Kind::Nothing. On a bad line returns false and sets error to a short
// description of the problem, e.g. `unknown level "fatal"`.
bool parseLine(const QString& line, Command& command, QString& error);

// "info" 2, "warn" 3, "error" 4, "printinfo" 5, "print" 6, "log" 1, or any
// decimal 32-bit integer ("-1", "7").
bool parseLevel(const QString& text, int& level);

// Whether a bcc address may be probed from here: a loopback address
// (127.0.0.0/8, ::1), "localhost", or empty (the library ignores such reports).
bool isLoopbackAddress(const QString& address);

// The command summary printed by --help.
QString commandHelp();

} // namespace scenario

#endif // SCENARIO_H
