#pragma once

#include "references/VolumeCatalog.h"

#include <QFile>
#include <QHash>
#include <QMutex>
#include <sys/stat.h>
#include <sys/sysmacros.h>

// A mount table a test writes: mounts with the UUID and label each one reports.
class FakeVolumeCatalog : public VolumeCatalog
{
public:
    // An ext4 mount at that folder, of the device the folder really is on, so that inodes can
    // be searched; it has no mount ID, as mounts made up have none.
    static Mount mountAt(const QString& point)
    {
        struct stat status = {};
        ::stat(QFile::encodeName(point).constData(), &status);
        Mount mount;
        mount.mountPoint = point;
        mount.source = QStringLiteral("/dev/fake");
        mount.fileSystemType = QStringLiteral("ext4");
        mount.major = ::major(status.st_dev);
        mount.minor = ::minor(status.st_dev);
        return mount;
    }

    void setMounts(QList<Mount> mounts, QHash<QString, QString> uuidByMountPoint,
                   QHash<QString, QString> labelByMountPoint = {})
    {
        QMutexLocker locker(&m_lock);
        m_mounts = std::move(mounts);
        m_uuids = std::move(uuidByMountPoint);
        m_labels = std::move(labelByMountPoint);
    }

    QList<Mount> mounts() const override
    {
        QMutexLocker locker(&m_lock);
        return m_mounts;
    }
    QString uuidOf(const Mount& mount) const override
    {
        QMutexLocker locker(&m_lock);
        return m_uuids.value(mount.mountPoint);
    }
    QString labelOf(const Mount& mount) const override
    {
        QMutexLocker locker(&m_lock);
        return m_labels.value(mount.mountPoint);
    }

private:
    mutable QMutex m_lock;
    QList<Mount> m_mounts;
    QHash<QString, QString> m_uuids;
    QHash<QString, QString> m_labels;
};
