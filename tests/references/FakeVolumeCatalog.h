#pragma once

#include "references/VolumeCatalog.h"

#include <QHash>
#include <QMutex>

// A mount table a test writes: mounts with the UUID and label each one reports.
class FakeVolumeCatalog : public VolumeCatalog
{
public:
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
