// The native directory listing must list exactly what QDirIterator does.
#include "testtree.h"
#include "userlog/writer/logfiles.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtTest/QtTest>

#include <sys/stat.h>

namespace {

QStringList describe(const QVector<logfiles::ListedFile>& files)
{
    QStringList names;
    for (const logfiles::ListedFile& file : files)
        names << file.name + (file.isSymLink ? QStringLiteral(" (link)") : QString());
    names.sort();
    return names;
}

} // namespace

class TestDirListing : public QObject
{
    Q_OBJECT

private slots:
    void nativeListingMatchesQDir()
    {
        TestTree tree;
        QVERIFY(tree.isValid());
        const QString dir = tree.logDir(QStringLiteral("mixed"));
        QVERIFY(makeFiles(dir, {QStringLiteral("user_log_file_1.txt"), QStringLiteral(".hidden"),
                                QStringLiteral("n\u00e4me_2.TXT")}));
        QVERIFY(QDir(dir).mkdir(QStringLiteral("subdir")));
        QVERIFY(QFile::link(dir + QStringLiteral("/user_log_file_1.txt"),
                            dir + QStringLiteral("/file_link_3.txt")));
        QVERIFY(QFile::link(dir + QStringLiteral("/subdir"), dir + QStringLiteral("/dir_link")));
        QVERIFY(QFile::link(dir + QStringLiteral("/gone"), dir + QStringLiteral("/dangling")));
        QCOMPARE(::mkfifo(QFile::encodeName(dir + QStringLiteral("/fifo")).constData(), 0600), 0);

        const QStringList expected{QStringLiteral("file_link_3.txt (link)"),
                                   QStringLiteral("n\u00e4me_2.TXT"),
                                   QStringLiteral("user_log_file_1.txt")};
        QCOMPARE(describe(logfiles::listFilesPortable(dir)), expected);
        QCOMPARE(describe(logfiles::listFiles(dir)), expected);
        // Relative paths, a regular file and a missing directory list alike too.
        QCOMPARE(describe(logfiles::listFiles(QStringLiteral("../../log/mixed"))), expected);
        QVERIFY(logfiles::listFiles(dir + QStringLiteral("/user_log_file_1.txt")).isEmpty());
        QVERIFY(logfiles::listFiles(dir + QStringLiteral("/missing")).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestDirListing)
#include "tst_dirlisting.moc"
