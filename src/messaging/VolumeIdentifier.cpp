#include "messaging/VolumeIdentifier.h"

#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "foundation/KeyedDecoder.h"

#include <QFile>
#include <QHash>
#include <array>
#include <cstring>
#include <sys/statfs.h>

namespace {
// Hex of both words of f_fsid, empty when the kernel has none for this file system.
QString fileSystemIdOf(const QString& mountPoint)
{
    struct statfs info
    {};
    if (::statfs(QFile::encodeName(mountPoint).constData(), &info) != 0) {
        return {};
    }
    std::array<quint32, 2> words{};
    static_assert(sizeof(words) == sizeof(info.f_fsid));
    std::memcpy(words.data(), &info.f_fsid, sizeof(words));
    if (words[0] == 0 && words[1] == 0) {
        return {};
    }
    return QStringLiteral("%1%2")
        .arg(words[0], 8, 16, QLatin1Char('0'))
        .arg(words[1], 8, 16, QLatin1Char('0'));
}

[[noreturn]] void raiseMalformed(const QString& reason)
{
    KSException::exceptionWithName(QStringLiteral("Archive"), reason)
        .setClass(QStringLiteral("VolumeIdentifier"))
        .raise();
}
} // namespace

VolumeIdentifier::VolumeIdentifier(QString identifier, Kind kind, QString mountPath)
    : m_identifier(std::move(identifier))
    , m_kind(kind)
    , m_mountPath(std::move(mountPath))
{}

VolumeIdentifier VolumeIdentifier::volumeIdentifierForPath(const QString& path)
{
    if (path.isEmpty()) {
        return {};
    }
    const auto mount = MountTable::current().mountContaining(MountTable::resolvedPath(path));
    return mount ? volumeIdentifierForMount(*mount) : VolumeIdentifier();
}

VolumeIdentifier VolumeIdentifier::volumeIdentifierForMount(const MountTable::Mount& mount,
                                                            const QString& uuidFolder)
{
    if (const QString uuid = MountTable::deviceLinkName(mount, uuidFolder); !uuid.isEmpty()) {
        return {uuid, Kind::Uuid, mount.mountPoint};
    }
    if (const QString fsid = fileSystemIdOf(mount.mountPoint); !fsid.isEmpty()) {
        return {fsid, Kind::FileSystemId, mount.mountPoint};
    }
    return {QStringLiteral("%1:%2").arg(mount.major).arg(mount.minor), Kind::DeviceNumber,
            mount.mountPoint};
}

QString VolumeIdentifier::onlineMountPath() const
{
    return onlineMountPath(MountTable::current());
}

QString VolumeIdentifier::onlineMountPath(const MountTable& table, const QString& uuidFolder) const
{
    if (isNull()) {
        return {};
    }
    if (!m_mountPath.isEmpty()) {
        const auto recorded = table.mountAt(m_mountPath);
        if (recorded && volumeIdentifierForMount(*recorded, uuidFolder).isEqual(*this)) {
            return m_mountPath;
        }
    }
    // A bind mount of a sub-folder shows only part of the volume; paths recorded below the
    // whole volume's mount point are more likely to be found under another whole mount.
    QString partial;
    for (const MountTable::Mount& mount : table.mounts()) {
        if (!volumeIdentifierForMount(mount, uuidFolder).isEqual(*this)) {
            continue;
        }
        if (mount.root == QStringLiteral("/")) {
            return mount.mountPoint;
        }
        if (partial.isEmpty()) {
            partial = mount.mountPoint;
        }
    }
    return partial;
}

bool VolumeIdentifier::isEqual(const VolumeIdentifier& other) const
{
    return m_identifier == other.m_identifier;
}

size_t VolumeIdentifier::hash() const
{
    return qHash(m_identifier);
}

QString VolumeIdentifier::description() const
{
    switch (m_kind) {
    case Kind::Uuid:
        break;
    case Kind::FileSystemId:
        return QStringLiteral("fsid:") + m_identifier;
    case Kind::DeviceNumber:
        return QStringLiteral("dev:") + m_identifier;
    }
    return m_identifier;
}

void VolumeIdentifier::registerArchivableClass()
{
    KeyedArchive::registerClass<VolumeIdentifier>(
        QStringLiteral("VolumeIdentifier"),
        [](const QVariant& object) {
            const auto volume = object.value<VolumeIdentifier>();
            return QVariantMap{{QStringLiteral("uuid"), volume.identifier()},
                               {QStringLiteral("kind"), qint64(volume.kind())},
                               {QStringLiteral("mountPath"), volume.mountPath()}};
        },
        [](const KeyedDecoder& coder) {
            const QString identifier =
                coder.decodeStringObject(QStringLiteral("uuid")).value_or(QString());
            if (identifier.isEmpty()) {
                raiseMalformed(QStringLiteral("volume identifier without an identity"));
            }
            const qint64 kind = coder.decodeInt64(QStringLiteral("kind"));
            if (kind < qint64(Kind::Uuid) || kind > qint64(Kind::DeviceNumber)) {
                raiseMalformed(QStringLiteral("unknown kind of volume identifier"));
            }
            return QVariant::fromValue(VolumeIdentifier(
                identifier, Kind(kind),
                coder.decodeStringObject(QStringLiteral("mountPath")).value_or(QString())));
        });
    QMetaType::registerConverter<VolumeIdentifier, QString>(&VolumeIdentifier::description);
}

namespace {
[[maybe_unused]] const bool s_registered = (VolumeIdentifier::registerArchivableClass(), true);
} // namespace
