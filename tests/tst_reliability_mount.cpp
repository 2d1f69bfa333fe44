#include "tst_reliability_mount.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cerrno>
#include <cstring>

#include <sys/mount.h>

namespace {
constexpr unsigned long mountFlags = MS_NOSUID | MS_NODEV | MS_NOEXEC;
}

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
