#pragma once

#include <QString>
#include <optional>

// Finds a file or folder by its inode on one mounted volume (and by its birth time where the
// file system keeps one, as an inode number is handed on once a file is deleted): where it was
// recorded, then among the entries of the recorded parent folder (renamed in place), then by a walk
// of the volume from its mount point (moved), bounded in depth and in entries read so that a huge
// volume cannot hold the caller up. The walk stays on the volume, follows no symbolic link and
// does not look inside archives. One search's entry budget is shared by all its volumes.
class VolumeSearch
{
public:
    struct Limits
    {
        // Levels of folders read, the mount point being the first.
        int maxDepth = 8;
        // Directory entries read, over the whole search.
        qint64 maxEntries = 100000;
    };

    // What is looked for: the entry with that inode and, unless 0, that birth time, on the
    // mount with that ID (on that device where the kernel gives no mount IDs).
    struct Target
    {
        int mountId = -1;
        quint64 device = 0;
        quint64 inode = 0;
        qint64 birthTime = 0;
    };

    // The birth time of the file in nanoseconds since 1970, 0 when the file system keeps none.
    static qint64 birthTimeOf(const QString& path);

    // The limits of searches made from now on; tests lower them.
    static Limits defaultLimits();
    static void setDefaultLimits(Limits limits);

    VolumeSearch();
    explicit VolumeSearch(Limits limits);

    // The absolute path of the target on the volume mounted at the mount point; relativePath
    // is where it was recorded, below the mount point.
    std::optional<QString> find(const QString& mountPoint, const Target& target,
                                const QString& relativePath);

    qint64 entriesRead() const { return m_entriesRead; }

private:
    static bool isTarget(const QString& path, const Target& target);
    // Whether a file is on the target's volume; its inode and birth time are filled in.
    static bool isOnVolume(int folder, const char* name, int flags, const Target& target,
                           struct statx* status);
    // The entry with the inode among those of the folder; subfolders worth walking are added
    // to `folders` when given.
    std::optional<QString> searchFolder(const QString& folder, const Target& target,
                                        QStringList* folders);
    std::optional<QString> walk(const QString& mountPoint, const Target& target);

    Limits m_limits;
    qint64 m_entriesRead = 0;
};
