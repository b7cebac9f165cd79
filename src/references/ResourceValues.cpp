#include "references/ResourceValues.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <sys/stat.h>

namespace {
const QString kArchiveSuffix = QStringLiteral(".stromi");
}

QStringList ResourceValues::knownKeys()
{
    return {kPathKey,
            kNameKey,
            kLocalizedNameKey,
            kVolumeNameKey,
            kVolumeLocalizedNameKey,
            kVolumeUUIDStringKey};
}

QVariant ResourceValues::valueForKey(const QUrl& url, const QString& key)
{
    return valuesForKeys(url, {key}).value(key);
}

QVariantMap ResourceValues::valuesForKeys(const QUrl& url, const QStringList& keys)
{
    if (!url.isLocalFile()) {
        return {};
    }
    const QString path = QDir::cleanPath(url.toLocalFile());
    struct stat status = {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0) {
        return {};
    }
    const auto catalog = VolumeCatalog::shared();
    const QString canonical = QFileInfo(path).canonicalFilePath();
    const auto mount =
        catalog->mountHolding(canonical.isEmpty() ? path : canonical, MountTable::mountIdOf(path));
    // A file outside every known mount still has its own names.
    const VolumeCatalog::Mount none;
    return valuesForFile(path, S_ISDIR(status.st_mode), mount ? *mount : none, *catalog, keys);
}

QVariantMap ResourceValues::valuesForFile(const QString& path, bool isFolder,
                                          const VolumeCatalog::Mount& mount,
                                          const VolumeCatalog& catalog, const QStringList& keys)
{
    const QString name = path == QLatin1String("/") ? path : path.section(QLatin1Char('/'), -1);
    const bool onVolume = !mount.mountPoint.isEmpty();
    QVariantMap values;
    for (const QString& key : keys) {
        if (key == kPathKey) {
            values.insert(key, path);
        } else if (key == kNameKey) {
            values.insert(key, name);
        } else if (key == kLocalizedNameKey) {
            values.insert(key, localizedName(name, isFolder));
        } else if (!onVolume) {
            continue;
        } else if (key == kVolumeNameKey || key == kVolumeLocalizedNameKey) {
            values.insert(key, catalog.volumeName(mount));
        } else if (key == kVolumeUUIDStringKey) {
            if (QString uuid = catalog.uuidOf(mount); !uuid.isEmpty()) {
                values.insert(key, uuid);
            }
        }
    }
    return values;
}

QString ResourceValues::localizedName(const QString& fileName, bool isFolder)
{
    if (isFolder && fileName.size() > kArchiveSuffix.size() && fileName.endsWith(kArchiveSuffix)) {
        return fileName.chopped(kArchiveSuffix.size());
    }
    return fileName;
}
