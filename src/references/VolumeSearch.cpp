#include "references/VolumeSearch.h"

#include <QFile>
#include <QStringList>
#include <atomic>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {
std::atomic<int> s_maxDepth{VolumeSearch::Limits().maxDepth};
std::atomic<qint64> s_maxEntries{VolumeSearch::Limits().maxEntries};

const QString kArchiveSuffix = QStringLiteral(".stromi");

QString childPath(const QString& folder, const QString& name)
{
    return folder.endsWith(QLatin1Char('/')) ? folder + name : folder + QLatin1Char('/') + name;
}

qint64 birthTimeIn(const struct statx& status)
{
    if (!(status.stx_mask & STATX_BTIME)) {
        return 0;
    }
    return qint64(status.stx_btime.tv_sec) * 1000000000 + qint64(status.stx_btime.tv_nsec);
}

// Closes the directory stream when the scope ends.
struct DirCloser
{
    void operator()(DIR* dir) const { ::closedir(dir); }
};
using Directory = std::unique_ptr<DIR, DirCloser>;
} // namespace

VolumeSearch::Limits VolumeSearch::defaultLimits()
{
    return {s_maxDepth.load(), s_maxEntries.load()};
}

void VolumeSearch::setDefaultLimits(Limits limits)
{
    s_maxDepth = limits.maxDepth;
    s_maxEntries = limits.maxEntries;
}

VolumeSearch::VolumeSearch()
    : VolumeSearch(defaultLimits())
{}

VolumeSearch::VolumeSearch(Limits limits)
    : m_limits(limits)
{}

std::optional<QString> VolumeSearch::find(const QString& mountPoint, const Target& target,
                                          const QString& relativePath)
{
    const QString recorded =
        relativePath.isEmpty() ? mountPoint : childPath(mountPoint, relativePath);
    if (isTarget(recorded, target)) {
        return recorded;
    }
    const qsizetype slash = relativePath.lastIndexOf(QLatin1Char('/'));
    const QString parent = slash < 0 ? mountPoint : childPath(mountPoint, relativePath.left(slash));
    if (parent != mountPoint) {
        if (auto found = searchFolder(parent, target, nullptr)) {
            return found;
        }
    }
    return walk(mountPoint, target);
}

bool VolumeSearch::isOnVolume(int folder, const char* name, int flags, const Target& target,
                              struct statx* status)
{
    if (::statx(folder, name, flags, STATX_INO | STATX_MNT_ID | STATX_BTIME, status) != 0) {
        return false;
    }
    // stat()'s device of a btrfs subvolume is none of the mount's: the mount ID is what
    // tells whether a file is on the mount.
    if (target.mountId >= 0 && (status->stx_mask & STATX_MNT_ID)) {
        return status->stx_mnt_id == quint64(target.mountId);
    }
    return quint64(makedev(status->stx_dev_major, status->stx_dev_minor)) == target.device;
}

bool VolumeSearch::isTarget(const QString& path, const Target& target)
{
    struct statx status = {};
    if (!isOnVolume(AT_FDCWD, QFile::encodeName(path).constData(), AT_SYMLINK_NOFOLLOW, target,
                    &status) ||
        status.stx_ino != target.inode) {
        return false;
    }
    return target.birthTime == 0 || birthTimeIn(status) == target.birthTime;
}

qint64 VolumeSearch::birthTimeOf(const QString& path)
{
    struct statx status = {};
    if (::statx(AT_FDCWD, QFile::encodeName(path).constData(), AT_SYMLINK_NOFOLLOW, STATX_BTIME,
                &status) != 0) {
        return 0;
    }
    return birthTimeIn(status);
}

std::optional<QString> VolumeSearch::searchFolder(const QString& folder, const Target& target,
                                                  QStringList* folders)
{
    const Directory dir(::opendir(QFile::encodeName(folder).constData()));
    if (!dir) {
        return std::nullopt;
    }
    struct statx onVolume = {};
    // Another file system mounted inside the volume is not part of it.
    if (!isOnVolume(::dirfd(dir.get()), "", AT_EMPTY_PATH, target, &onVolume)) {
        return std::nullopt;
    }
    struct stat status = {};
    while (m_entriesRead < m_limits.maxEntries) {
        const dirent* entry = ::readdir(dir.get());
        if (!entry) {
            break;
        }
        const QByteArray rawName(entry->d_name);
        if (rawName == "." || rawName == "..") {
            continue;
        }
        ++m_entriesRead;
        const QString path = childPath(folder, QFile::decodeName(rawName));
        if (quint64(entry->d_ino) == target.inode && isTarget(path, target)) {
            return path;
        }
        if (!folders || rawName.endsWith(QFile::encodeName(kArchiveSuffix))) {
            continue;
        }
        bool isFolder = entry->d_type == DT_DIR;
        if (entry->d_type == DT_UNKNOWN) {
            isFolder =
                ::fstatat(::dirfd(dir.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                S_ISDIR(status.st_mode);
        }
        if (isFolder) {
            folders->append(path);
        }
    }
    return std::nullopt;
}

std::optional<QString> VolumeSearch::walk(const QString& mountPoint, const Target& target)
{
    // Breadth first: an archive moved a few levels away is found before the walk goes deep.
    QStringList level{mountPoint};
    for (int depth = 0; depth < m_limits.maxDepth && !level.isEmpty(); ++depth) {
        QStringList next;
        for (const QString& folder : level) {
            if (m_entriesRead >= m_limits.maxEntries) {
                return std::nullopt;
            }
            if (auto found = searchFolder(folder, target, &next)) {
                return found;
            }
        }
        level = std::move(next);
    }
    return std::nullopt;
}
