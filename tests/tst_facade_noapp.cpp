// A host without a QCoreApplication: the start-up banner is still written on
// the calling thread, and flush() gives up at once instead of waiting.
#include "testtree.h"

#include <userlog/userlog.h>

#include <QtCore/QElapsedTimer>

#include <cstdio>

int main()
{
    TestTree tree;
    UserLog* log = UserLog::logger();
    QElapsedTimer timer;
    timer.start();
    const bool flushed = log->flush(3000);
    const qint64 elapsed = timer.elapsed();
    const int bannerLines =
        readLines(tree.logDir(QStringLiteral("offline")) + QStringLiteral("/user_print_file_off"))
            .size();
    std::printf("flush: %d after %lld ms, banner lines: %d\n", int(flushed), elapsed, bannerLines);
    return !flushed && elapsed < 1000 && bannerLines == 3 ? 0 : 1;
}
