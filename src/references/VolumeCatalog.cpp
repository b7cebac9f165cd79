#include "references/VolumeCatalog.h"

#include "references/linux/SystemVolumeCatalog.h"

#include <QMutex>
#include <utility>

namespace {
QMutex s_sharedLock;
std::shared_ptr<VolumeCatalog> s_shared;
} // namespace

VolumeCatalog::~VolumeCatalog() = default;

std::optional<VolumeCatalog::Mount> VolumeCatalog::mountHolding(const QString& canonicalPath,
                                                                std::optional<int> mountId) const
{
    // The mount the kernel names holds the file; else the deepest, and the one mounted last
    // where two share a place.
    std::optional<Mount> best;
    std::pair<bool, qsizetype> bestRank;
    for (const Mount& mount : mounts()) {
        if (!MountTable::isAtOrBelow(canonicalPath, mount.mountPoint)) {
            continue;
        }
        const std::pair<bool, qsizetype> rank(mountId && mount.id == *mountId,
                                              mount.mountPoint.size());
        if (!best || rank >= bestRank) {
            best = mount;
            bestRank = rank;
        }
    }
    return best;
}

QList<VolumeCatalog::Mount> VolumeCatalog::mountsOfVolume(const QString& uuid) const
{
    QList<Mount> found;
    if (uuid.isEmpty()) {
        return found;
    }
    for (const Mount& mount : mounts()) {
        // Asking an automounter's mount point about its volume would mount it.
        if (mount.fileSystemType == QLatin1String("autofs")) {
            continue;
        }
        if (uuidOf(mount) == uuid) {
            found.append(mount);
        }
    }
    return found;
}

QString VolumeCatalog::volumeName(const Mount& mount) const
{
    if (mount.mountPoint == QLatin1String("/")) {
        const QString label = labelOf(mount);
        return label.isEmpty() ? mount.mountPoint : label;
    }
    return mount.mountPoint.section(QLatin1Char('/'), -1);
}

std::shared_ptr<VolumeCatalog> VolumeCatalog::shared()
{
    QMutexLocker locker(&s_sharedLock);
    if (!s_shared) {
        s_shared = std::make_shared<SystemVolumeCatalog>();
    }
    return s_shared;
}

void VolumeCatalog::setShared(std::shared_ptr<VolumeCatalog> catalog)
{
    QMutexLocker locker(&s_sharedLock);
    s_shared = std::move(catalog);
}
