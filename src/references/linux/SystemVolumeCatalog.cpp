#include "references/linux/SystemVolumeCatalog.h"

#include "messaging/VolumeIdentifier.h"

#include <QFile>

namespace {
// udev writes characters that are unsafe in a link name as \xHH.
QString decodeHexEscapes(const QString& name)
{
    const QByteArray bytes = QFile::encodeName(name);
    QByteArray decoded;
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        if (bytes.at(i) == '\\' && i + 3 < bytes.size() && bytes.at(i + 1) == 'x') {
            bool ok = false;
            const int code = bytes.mid(i + 2, 2).toInt(&ok, 16);
            if (ok) {
                decoded.append(char(code));
                i += 3;
                continue;
            }
        }
        decoded.append(bytes.at(i));
    }
    return QString::fromUtf8(decoded);
}
} // namespace

SystemVolumeCatalog::SystemVolumeCatalog(QString mountInfoPath, QString byUuidFolder,
                                         QString byLabelFolder)
    : m_mountInfoPath(std::move(mountInfoPath))
    , m_byUuidFolder(std::move(byUuidFolder))
    , m_byLabelFolder(std::move(byLabelFolder))
{}

SystemVolumeCatalog::SystemVolumeCatalog()
    : SystemVolumeCatalog(MountTable::kMountInfoPath, VolumeIdentifier::kUuidFolder,
                          QStringLiteral("/dev/disk/by-label"))
{}

QList<VolumeCatalog::Mount> SystemVolumeCatalog::mounts() const
{
    return MountTable::read(m_mountInfoPath).mounts();
}

QString SystemVolumeCatalog::uuidOf(const Mount& mount) const
{
    const VolumeIdentifier volume =
        VolumeIdentifier::volumeIdentifierForMount(mount, m_byUuidFolder);
    // A device number is given again to another volume after a restart: no identity.
    return volume.kind() == VolumeIdentifier::Kind::DeviceNumber ? QString() : volume.identifier();
}

QString SystemVolumeCatalog::labelOf(const Mount& mount) const
{
    return decodeHexEscapes(MountTable::deviceLinkName(mount, m_byLabelFolder));
}
