#pragma once

#include <QList>
#include <QString>
#include <memory>
#include <optional>

// The mounted volumes and what identifies each across mounts. Bookmarks ask it where a volume
// is mounted now, so that an archive is found again when its disk comes back at another
// place. Tests put in a mount table of their own.
class VolumeCatalog
{
public:
    struct Mount
    {
        QString mountPoint;
        // The device number that stat() reports for files on the mount.
        quint64 device = 0;
        QString source;
        QString fileSystemType;
    };

    VolumeCatalog() = default;
    VolumeCatalog(const VolumeCatalog&) = delete;
    VolumeCatalog& operator=(const VolumeCatalog&) = delete;
    virtual ~VolumeCatalog();

    // In mount order: a later mount at the same place hides an earlier one.
    virtual QList<Mount> mounts() const = 0;
    // What stays the same when the volume is mounted again, elsewhere or after a restart;
    // empty when the volume has nothing of the kind.
    virtual QString uuidOf(const Mount& mount) const = 0;
    // The file system's label; empty when it has none.
    virtual QString labelOf(const Mount& mount) const = 0;

    // The mount that holds the path (absolute, without symbolic links) on that device: the
    // deepest mount point above it, preferring one of the same device.
    std::optional<Mount> mountHolding(const QString& canonicalPath, quint64 device) const;
    // Where the volume with that UUID is mounted now; several places for a bind mount.
    QList<Mount> mountsOfVolume(const QString& uuid) const;
    // The mount point's last component; for the root, the file system's label if it has one.
    QString volumeName(const Mount& mount) const;

    // The catalog every bookmark uses. Setting none restores the system's.
    static std::shared_ptr<VolumeCatalog> shared();
    static void setShared(std::shared_ptr<VolumeCatalog> catalog);
};
