#include "tst_reliability_mount.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cerrno>
#include <cstring>

#include <sched.h>
#include <sys/mount.h>

namespace {

constexpr unsigned long mountFlags = MS_NOSUID | MS_NODEV | MS_NOEXEC;

// Before main, while the process has one thread (threads made later inherit
// it): a mount namespace of the process's own, so its mounts vanish with the
// process even when a crash skips every destructor. Where that is not allowed
// the mounts are made in the shared namespace and unmounted by the destructor.
const bool privateMounts = [] {
    return ::unshare(CLONE_NEWNS) == 0 &&
           ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}();

} // namespace

TmpfsMount::TmpfsMount(const QString& dir, qint64 sizeBytes) : _dir(dir)
{
    const QByteArray options = "size=" + QByteArray::number(sizeBytes) + ",mode=0755";
    if (!QDir().mkpath(dir))
        _error = QStringLiteral("cannot create ") + dir;
    else if (::mount("tmpfs", QFile::encodeName(dir).constData(), "tmpfs", mountFlags,
                     options.constData()) != 0)
        _error = QStringLiteral("cannot mount a tmpfs: ") + QString::fromLocal8Bit(strerror(errno));
    else
        _mounted = true;
}

TmpfsMount::~TmpfsMount()
{
    if (_mounted)
        ::umount2(QFile::encodeName(_dir).constData(), MNT_DETACH);
}

bool TmpfsMount::remount(bool readOnly)
{
    const unsigned long flags = MS_REMOUNT | mountFlags | (readOnly ? MS_RDONLY : 0);
    if (::mount(nullptr, QFile::encodeName(_dir).constData(), nullptr, flags, nullptr) == 0)
        return true;
    _error = QStringLiteral("cannot remount: ") + QString::fromLocal8Bit(strerror(errno));
    return false;
}
