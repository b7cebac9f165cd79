#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <optional>

// The file systems mounted in this process's view, as the kernel lists them in
// /proc/self/mountinfo, in the kernel's order (a later mount over the same point hides an
// earlier one).
class MountTable
{
public:
    struct Mount
    {
        QString mountPoint;
        // The folder of the file system that appears at the mount point ("/" unless bound
        // from inside another mount).
        QString root;
        QString source;
        QString fileSystemType;
        quint32 major = 0;
        quint32 minor = 0;
    };

    static MountTable current();
    // Malformed lines are skipped: a table with what could be read serves better than none.
    static MountTable fromMountInfo(const QByteArray& text);

    const QList<Mount>& mounts() const { return m_mounts; }
    // The mount that holds an absolute, resolved path: the one with the longest mount point
    // that is the path or one of its ancestors.
    std::optional<Mount> mountContaining(const QString& path) const;
    // The visible mount at exactly this mount point.
    std::optional<Mount> mountAt(const QString& mountPoint) const;

    // The canonical form of a path; for a path that does not exist (an item since deleted),
    // its absolute, cleaned form, which is still good for finding its volume.
    static QString resolvedPath(const QString& path);
    // The components of `path` below `mountPoint`; both absolute and clean.
    static QStringList componentsBelow(const QString& path, const QString& mountPoint);

private:
    QList<Mount> m_mounts;
};
