#include "core/RecentArchives.h"

#include "foundation/KeyedArchive.h"

QByteArray RecentArchives::recentlyCapturedRepositories() const
{
    return KeyedArchive::archivedData(QVariantList());
}

QByteArray RecentArchives::findRepositoriesForItems(const QByteArray& /*items*/) const
{
    return KeyedArchive::archivedData(QVariantList());
}
