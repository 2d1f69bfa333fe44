#include "backlog.h"

#include <QtCore/QAtomicInteger>
#include <QtCore/QCoreApplication>
#include <QtCore/QVariant>

namespace backlog {

namespace {
// Relaxed: the counts are read to see movement, never to order other memory.
QAtomicInteger<quint64> posted;
QAtomicInteger<quint64> handled;
QAtomicInteger<quint64> work;

constexpr int quitStallSecondsForHosts = 5;
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

int quitStallSeconds()
{
    const QCoreApplication* app = QCoreApplication::instance();
    if (app == nullptr)
        return quitStallSecondsForHosts;
    bool ok = false;
    const int lowered = app->property("varnor.userlog.testQuitStallSeconds").toInt(&ok);
    return ok && lowered >= 1 && lowered < quitStallSecondsForHosts ? lowered
                                                                    : quitStallSecondsForHosts;
}

} // namespace backlog
