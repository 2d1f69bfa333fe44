#ifndef BACKLOG_H
#define BACKLOG_H

#include <QtCore/QtGlobal>

// How far the log thread is behind its host: calls the facade has posted, calls
// the writer has finished, and a count of finished work that also moves inside
// long events (batch lines, bcc probes). A quitting host keeps waiting while the
// work count moves, so a slow disk delays the quit but loses nothing, and gives
// up only when the log thread has stalled. One log thread per process, so the
// counts are process-wide.
namespace backlog {

void callPosted();
void callHandled();
void workDone();

quint64 workCount();
// Posted calls that the writer has not finished yet.
quint64 pendingCalls();

// How long a quitting host waits while the log thread finishes no work at all
// before it gives up: 5 s, for that long without any means a hung disk or share.
// Test only: a test program lowers it to 1 to 4 whole seconds with the dynamic
// property "varnor.userlog.testQuitStallSeconds" on its application object, set
// before it quits, so that a stall case need not wait 5 s. A property and not an
// environment variable: no shell or parent process passes it on to a host, and
// a host has no reason to set it. Any other value, or none, keeps 5 s.
int quitStallSeconds();

// Marks the host call that the current slot took as handled when the slot
// returns, however it returns.
class HandledCall
{
public:
    explicit HandledCall(bool fromHost = true) : _fromHost(fromHost) {}
    ~HandledCall()
    {
        if (_fromHost)
            callHandled();
    }
    Q_DISABLE_COPY(HandledCall)

private:
    bool _fromHost;
};

} // namespace backlog

#endif // BACKLOG_H
