#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <optional>

// The file systems mounted in this process's view, as the kernel lists them in
// /proc/self/mountinfo, in the kernel's order (a later mount over the same point hides an
// earlier one). The one reader of that file: volumes, bookmarks and mount events all see the
// same table.
class MountTable
{
public:
    static inline const QString kMountInfoPath = QStringLiteral("/proc/self/mountinfo");

    struct Mount
    {
        // The kernel's mount ID, as statx() reports it for every file on the mount; -1 when
        // unknown (a mount a test made up).
        int id = -1;
        QString mountPoint;
        // The folder of the file system that appears at the mount point ("/" unless bound
        // from inside another mount).
        QString root = QStringLiteral("/");
        QString source;
        QString fileSystemType;
        // The device number mountinfo lists. On btrfs it is not the one stat() reports for
        // the mount's files: match a file to its mount by `id`, never by this.
        quint32 major = 0;
        quint32 minor = 0;

        quint64 device() const;
        // A volume a person would call a disk: a file system on a block device (not a
        // read-only package image) or a network share. Pseudo, memory, overlay and FUSE file
        // systems of sandboxes and containers are not.
        bool isDisk() const;
    };

    static MountTable current();
    // Reads a file in the mountinfo format; an empty table when it cannot be read.
    static MountTable read(const QString& mountInfoPath);
    // Malformed lines are skipped: a table with what could be read serves better than none.
    static MountTable fromMountInfo(const QByteArray& text);

    const QList<Mount>& mounts() const { return m_mounts; }
    // The mount that holds an absolute, resolved path: the one with the longest mount point
    // that is the path or one of its ancestors.
    std::optional<Mount> mountContaining(const QString& path) const;
    // The mount an existing file is on, by the mount ID the kernel gives for it; by the
    // longest mount point where the kernel gives none.
    std::optional<Mount> mountOfFile(const QString& path) const;
    // The visible mount at exactly this mount point.
    std::optional<Mount> mountAt(const QString& mountPoint) const;

    // The kernel's mount ID of the file (not following a final symbolic link).
    static std::optional<int> mountIdOf(const QString& path);
    // The name of the link in a /dev/disk/by-* folder that leads to the mount's block device:
    // matched by device number, which survives renamed nodes, or else by the device node's
    // path, for file systems that list an anonymous device number (btrfs). Empty when none.
    static QString deviceLinkName(const Mount& mount, const QString& folder);

    // The canonical form of a path; for a path that does not exist (an item since deleted),
    // its absolute, cleaned form, which is still good for finding its volume.
    static QString resolvedPath(const QString& path);
    // Whether an absolute, clean path is the mount point or below it, by whole components.
    static bool isAtOrBelow(const QString& path, const QString& mountPoint);
    // The components of `path` below `mountPoint`; both absolute and clean.
    static QStringList componentsBelow(const QString& path, const QString& mountPoint);

private:
    QList<Mount> m_mounts;
};
