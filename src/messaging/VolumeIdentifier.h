#pragma once

#include "platform/linux/MountTable.h"

#include <QMetaType>
#include <QString>

// Names a mounted file system so that it is recognised wherever and whenever it is mounted
// again: by the UUID of its block device, or, for volumes that have none (tmpfs, overlay,
// network file systems), by the file system id the kernel reports for it. Immutable.
class VolumeIdentifier
{
public:
    enum class Kind : quint8
    {
        Uuid = 0,
        FileSystemId = 1,
        // Only when the kernel reports no file system id either; good until the next boot.
        DeviceNumber = 2,
    };

    static inline const QString kUuidFolder = QStringLiteral("/dev/disk/by-uuid");

    VolumeIdentifier() = default;
    VolumeIdentifier(QString identifier, Kind kind, QString mountPath = {});

    // The volume that holds the path (which need not exist any more); a null identifier when
    // no mount holds it.
    static VolumeIdentifier volumeIdentifierForPath(const QString& path);
    static VolumeIdentifier volumeIdentifierForMount(const MountTable::Mount& mount,
                                                     const QString& uuidFolder = kUuidFolder);

    bool isNull() const { return m_identifier.isEmpty(); }
    // The UUID, the file system id in hex, or "major:minor", as `kind` says.
    const QString& identifier() const { return m_identifier; }
    Kind kind() const { return m_kind; }
    // Where the volume was mounted when this identifier was made: a hint, not an identity.
    const QString& mountPath() const { return m_mountPath; }

    // Where the volume can be reached now, empty when it is not mounted: the recorded mount
    // point if the volume is still there, else a mount of its whole file system, else any
    // mount of part of it.
    QString onlineMountPath() const;
    QString onlineMountPath(const MountTable& table, const QString& uuidFolder = kUuidFolder) const;

    bool isEqual(const VolumeIdentifier& other) const;
    size_t hash() const;
    QString description() const;

    static void registerArchivableClass();

private:
    QString m_identifier;
    Kind m_kind = Kind::Uuid;
    QString m_mountPath;
};

inline bool operator==(const VolumeIdentifier& a, const VolumeIdentifier& b)
{
    return a.isEqual(b);
}

inline size_t qHash(const VolumeIdentifier& identifier, size_t seed = 0)
{
    return identifier.hash() ^ seed;
}

Q_DECLARE_METATYPE(VolumeIdentifier)
