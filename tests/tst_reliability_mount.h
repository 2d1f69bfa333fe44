#ifndef TST_RELIABILITY_MOUNT_H
#define TST_RELIABILITY_MOUNT_H

#include <QtCore/QString>

// A small tmpfs mounted on a directory inside a test tree, for faults that only
// a file system of its own can show: a full disk, a read-only remount. Root
// ignores permission bits, so nothing less makes writes fail. Unmounted when
// the object goes away, lazily if something still holds a file in it.
class TmpfsMount
{
public:
    // Creates dir if needed and mounts a tmpfs of sizeBytes on it.
    TmpfsMount(const QString& dir, qint64 sizeBytes);
    ~TmpfsMount();
    TmpfsMount(const TmpfsMount&) = delete;
    TmpfsMount& operator=(const TmpfsMount&) = delete;

    bool isMounted() const { return _mounted; }
    // Why the mount or the last remount failed: the reason a test skips.
    QString error() const { return _error; }
    bool remount(bool readOnly);

private:
    QString _dir;
    QString _error;
    bool _mounted = false;
};

#endif // TST_RELIABILITY_MOUNT_H
