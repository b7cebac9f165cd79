#pragma once

#include "platform/linux/MountTable.h"

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
    using Mount = MountTable::Mount;

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

    // The mount that holds the path (absolute, without symbolic links): the one with the
    // kernel's mount ID of the file (MountTable::mountIdOf), else the deepest mount point
    // above it.
    std::optional<Mount> mountHolding(const QString& canonicalPath,
                                      std::optional<int> mountId) const;
    // Where the volume with that UUID is mounted now; several places for a bind mount.
    QList<Mount> mountsOfVolume(const QString& uuid) const;
    // The mount point's last component; for the root, the file system's label if it has one.
    QString volumeName(const Mount& mount) const;

    // The catalog every bookmark uses. Setting none restores the system's.
    static std::shared_ptr<VolumeCatalog> shared();
    static void setShared(std::shared_ptr<VolumeCatalog> catalog);
};
