#pragma once

#include "references/VolumeCatalog.h"

// The machine's mount table (/proc/self/mountinfo). A volume's UUID is the name of its link in
// /dev/disk/by-uuid, or, for a file system without a block device there, its statfs fsid in
// hex; its label is the name of its link in /dev/disk/by-label. The three places can be moved
// for tests.
class SystemVolumeCatalog : public VolumeCatalog
{
public:
    explicit SystemVolumeCatalog(QString mountInfoPath = QStringLiteral("/proc/self/mountinfo"),
                                 QString byUuidFolder = QStringLiteral("/dev/disk/by-uuid"),
                                 QString byLabelFolder = QStringLiteral("/dev/disk/by-label"));

    QList<Mount> mounts() const override;
    QString uuidOf(const Mount& mount) const override;
    QString labelOf(const Mount& mount) const override;

    // One line of mountinfo; none when the line is not one.
    static std::optional<Mount> parseMountInfoLine(const QByteArray& line);

private:
    QString m_mountInfoPath;
    QString m_byUuidFolder;
    QString m_byLabelFolder;
};
