#pragma once

#include "references/VolumeCatalog.h"

// The machine's mount table. A volume's UUID is the one its messages carry (the name of its
// link in /dev/disk/by-uuid, or its file system id); its label is the name of its link in
// /dev/disk/by-label. The three places can be moved for tests.
class SystemVolumeCatalog : public VolumeCatalog
{
public:
    SystemVolumeCatalog(QString mountInfoPath, QString byUuidFolder, QString byLabelFolder);
    // The places of this machine.
    SystemVolumeCatalog();

    QList<Mount> mounts() const override;
    QString uuidOf(const Mount& mount) const override;
    QString labelOf(const Mount& mount) const override;

private:
    QString m_mountInfoPath;
    QString m_byUuidFolder;
    QString m_byLabelFolder;
};
