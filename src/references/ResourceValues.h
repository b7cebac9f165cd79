#pragma once

#include "references/VolumeCatalog.h"

#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariantMap>

// What can be asked of a file URL by resource key: the file's path and names and those of the
// volume that holds it, as strings. Values are read from the file system now; a URL that
// names no reachable local file has none.
class ResourceValues
{
public:
    static inline const QString kPathKey = QStringLiteral("Path");
    static inline const QString kNameKey = QStringLiteral("Name");
    static inline const QString kLocalizedNameKey = QStringLiteral("LocalizedName");
    static inline const QString kVolumeNameKey = QStringLiteral("VolumeName");
    static inline const QString kVolumeLocalizedNameKey = QStringLiteral("VolumeLocalizedName");
    static inline const QString kVolumeUUIDStringKey = QStringLiteral("VolumeUUIDString");

    // Every key above, in that order.
    static QStringList knownKeys();

    static QVariant valueForKey(const QUrl& url, const QString& key);
    // The values of the known keys among those asked; an empty map for an unreachable file.
    static QVariantMap valuesForKeys(const QUrl& url, const QStringList& keys);
    // The same for a file already found on its mount; a mount without a mount point (the file
    // lies on no known volume) gives no volume values.
    static QVariantMap valuesForFile(const QString& path, bool isFolder,
                                     const VolumeCatalog::Mount& mount,
                                     const VolumeCatalog& catalog, const QStringList& keys);

    // The name windows show: an archive folder's name without its extension, as a desktop
    // shows a package; any other file's name as it is.
    static QString localizedName(const QString& fileName, bool isFolder);
};
