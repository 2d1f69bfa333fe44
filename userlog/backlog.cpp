#include "backlog.h"

#include <QtCore/QAtomicInteger>

namespace backlog {

namespace {
// Relaxed: the counts are read to see movement, never to order other memory.
QAtomicInteger<quint64> posted;
QAtomicInteger<quint64> handled;
QAtomicInteger<quint64> work;
} // namespace

void callPosted()
{
    posted.fetchAndAddRelaxed(1);
}

void callHandled()
{
    handled.fetchAndAddRelaxed(1);
    workDone();
}

void workDone()
{
    work.fetchAndAddRelaxed(1);
}

quint64 workCount()
{
    return work.loadRelaxed();
}

quint64 pendingCalls()
{
    // Handled first: a call is posted before it is handled, so the later read of
    // the posted count is never the smaller one.
    const quint64 done = handled.loadRelaxed();
    const quint64 sent = posted.loadRelaxed();
    return sent > done ? sent - done : 0;
}

} // namespace backlog
