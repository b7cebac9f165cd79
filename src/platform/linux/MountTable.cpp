#include "platform/linux/MountTable.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace {
// The kernel writes space, tab, newline and backslash in names as "\ooo".
QString unescapedName(const QByteArray& field)
{
    QByteArray bytes;
    bytes.reserve(field.size());
    for (qsizetype i = 0; i < field.size(); ++i) {
        const bool octal = field.at(i) == '\\' && i + 3 < field.size() && field.at(i + 1) >= '0' &&
                           field.at(i + 1) <= '3' && field.at(i + 2) >= '0' &&
                           field.at(i + 2) <= '7' && field.at(i + 3) >= '0' &&
                           field.at(i + 3) <= '7';
        if (octal) {
            bytes.append(char(((field.at(i + 1) - '0') << 6) | ((field.at(i + 2) - '0') << 3) |
                              (field.at(i + 3) - '0')));
            i += 3;
        } else {
            bytes.append(field.at(i));
        }
    }
    return QFile::decodeName(bytes);
}

// "36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw,errors=continue"
std::optional<MountTable::Mount> parseLine(const QByteArray& line)
{
    const QList<QByteArray> fields = line.split(' ');
    const qsizetype separator = fields.indexOf(QByteArray("-"));
    if (fields.size() < 6 || separator < 6 || separator + 2 >= fields.size()) {
        return std::nullopt;
    }
    const QList<QByteArray> device = fields.at(2).split(':');
    bool idOk = false;
    bool majorOk = false;
    bool minorOk = false;
    MountTable::Mount mount;
    mount.id = fields.at(0).toInt(&idOk);
    if (device.size() == 2) {
        mount.major = device.at(0).toUInt(&majorOk);
        mount.minor = device.at(1).toUInt(&minorOk);
    }
    if (!idOk || mount.id < 0 || !majorOk || !minorOk) {
        return std::nullopt;
    }
    mount.root = unescapedName(fields.at(3));
    mount.mountPoint = unescapedName(fields.at(4));
    mount.fileSystemType = unescapedName(fields.at(separator + 1));
    mount.source = unescapedName(fields.at(separator + 2));
    if (!mount.mountPoint.startsWith(QLatin1Char('/'))) {
        return std::nullopt;
    }
    return mount;
}
} // namespace

quint64 MountTable::Mount::device() const
{
    return quint64(makedev(major, minor));
}

bool MountTable::Mount::isDisk() const
{
    static const QStringList kNetwork = {QStringLiteral("nfs"),   QStringLiteral("nfs4"),
                                         QStringLiteral("cifs"),  QStringLiteral("smb3"),
                                         QStringLiteral("smbfs"), QStringLiteral("afs"),
                                         QStringLiteral("ceph"),  QStringLiteral("fuse.sshfs")};
    // Snaps and the like mount read-only package images from loop devices.
    static const QStringList kImages = {QStringLiteral("squashfs"), QStringLiteral("erofs")};
    if (kNetwork.contains(fileSystemType)) {
        return true;
    }
    return source.startsWith(QLatin1String("/dev/")) && !kImages.contains(fileSystemType);
}

bool MountTable::isAtOrBelow(const QString& path, const QString& mountPoint)
{
    if (mountPoint == QStringLiteral("/")) {
        return path.startsWith(QLatin1Char('/'));
    }
    return path == mountPoint ||
           (path.startsWith(mountPoint) && path.at(mountPoint.size()) == QLatin1Char('/'));
}

MountTable MountTable::current()
{
    return read(kMountInfoPath);
}

MountTable MountTable::read(const QString& mountInfoPath)
{
    QFile file(mountInfoPath);
    // A proc file reports no size: read it as a stream to its end.
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return fromMountInfo(file.readAll());
}

MountTable MountTable::fromMountInfo(const QByteArray& text)
{
    MountTable table;
    for (const QByteArray& line : text.split('\n')) {
        if (auto mount = parseLine(line.trimmed())) {
            table.m_mounts.append(std::move(*mount));
        }
    }
    return table;
}

std::optional<MountTable::Mount> MountTable::mountContaining(const QString& path) const
{
    const Mount* best = nullptr;
    for (const Mount& mount : m_mounts) {
        // ">=" so that of two mounts at one point the later, visible one wins.
        if (isAtOrBelow(path, mount.mountPoint) &&
            (best == nullptr || mount.mountPoint.size() >= best->mountPoint.size())) {
            best = &mount;
        }
    }
    return best == nullptr ? std::nullopt : std::optional<Mount>(*best);
}

std::optional<MountTable::Mount> MountTable::mountOfFile(const QString& path) const
{
    if (const auto id = mountIdOf(path)) {
        for (auto it = m_mounts.crbegin(); it != m_mounts.crend(); ++it) {
            if (it->id == *id) {
                return *it;
            }
        }
    }
    return mountContaining(resolvedPath(path));
}

std::optional<int> MountTable::mountIdOf(const QString& path)
{
    struct statx status = {};
    if (::statx(AT_FDCWD, QFile::encodeName(path).constData(), AT_SYMLINK_NOFOLLOW, STATX_MNT_ID,
                &status) != 0 ||
        !(status.stx_mask & STATX_MNT_ID)) {
        return std::nullopt;
    }
    return int(status.stx_mnt_id);
}

QString MountTable::deviceLinkName(const Mount& mount, const QString& folder)
{
    const QString source = mount.source.startsWith(QLatin1Char('/'))
                               ? QFileInfo(mount.source).canonicalFilePath()
                               : QString();
    const QDir dir(folder);
    const QStringList names = dir.entryList(
        QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString& name : names) {
        const QString link = dir.filePath(name);
        struct stat node = {};
        if (mount.major != 0 && ::stat(QFile::encodeName(link).constData(), &node) == 0 &&
            S_ISBLK(node.st_mode) && quint64(node.st_rdev) == mount.device()) {
            return name;
        }
        if (!source.isEmpty() && QFileInfo(link).canonicalFilePath() == source) {
            return name;
        }
    }
    return {};
}

std::optional<MountTable::Mount> MountTable::mountAt(const QString& mountPoint) const
{
    for (auto it = m_mounts.crbegin(); it != m_mounts.crend(); ++it) {
        if (it->mountPoint == mountPoint) {
            return *it;
        }
    }
    return std::nullopt;
}

QString MountTable::resolvedPath(const QString& path)
{
    const QFileInfo info(path);
    const QString canonical = info.canonicalFilePath();
    return canonical.isEmpty() ? QDir::cleanPath(info.absoluteFilePath()) : canonical;
}

QStringList MountTable::componentsBelow(const QString& path, const QString& mountPoint)
{
    if (!isAtOrBelow(path, mountPoint)) {
        return {};
    }
    return path.mid(mountPoint.size()).split(QLatin1Char('/'), Qt::SkipEmptyParts);
}
