#include "references/linux/SystemVolumeCatalog.h"

#include <QDir>
#include <QFile>
#include <cstring>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>

namespace {
// mountinfo writes a blank, tab, newline and backslash in a path as a backslash and three
// octal digits.
QString decodeOctalEscapes(const QByteArray& field)
{
    QByteArray decoded;
    decoded.reserve(field.size());
    for (qsizetype i = 0; i < field.size(); ++i) {
        if (field.at(i) == '\\' && i + 3 < field.size()) {
            bool ok = false;
            const int code = field.mid(i + 1, 3).toInt(&ok, 8);
            if (ok && code < 256) {
                decoded.append(char(code));
                i += 3;
                continue;
            }
        }
        decoded.append(field.at(i));
    }
    return QFile::decodeName(decoded);
}

// udev writes characters that are unsafe in a link name as \xHH.
QString decodeHexEscapes(const QString& name)
{
    const QByteArray bytes = QFile::encodeName(name);
    QByteArray decoded;
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        if (bytes.at(i) == '\\' && i + 3 < bytes.size() && bytes.at(i + 1) == 'x') {
            bool ok = false;
            const int code = bytes.mid(i + 2, 2).toInt(&ok, 16);
            if (ok) {
                decoded.append(char(code));
                i += 3;
                continue;
            }
        }
        decoded.append(bytes.at(i));
    }
    return QString::fromUtf8(decoded);
}

// The name of the link in the folder that points at the block device, empty when none does.
QString linkToDevice(const QString& folder, quint64 device)
{
    const QDir dir(folder);
    for (const QString& name : dir.entryList(QDir::System | QDir::Files | QDir::NoDotAndDotDot)) {
        struct stat target = {};
        if (::stat(QFile::encodeName(dir.filePath(name)).constData(), &target) == 0 &&
            S_ISBLK(target.st_mode) && quint64(target.st_rdev) == device) {
            return name;
        }
    }
    return {};
}
} // namespace

SystemVolumeCatalog::SystemVolumeCatalog(QString mountInfoPath, QString byUuidFolder,
                                         QString byLabelFolder)
    : m_mountInfoPath(std::move(mountInfoPath))
    , m_byUuidFolder(std::move(byUuidFolder))
    , m_byLabelFolder(std::move(byLabelFolder))
{}

std::optional<VolumeCatalog::Mount> SystemVolumeCatalog::parseMountInfoLine(const QByteArray& line)
{
    // id parent major:minor root mount-point options [optional fields...] - type source options
    const QList<QByteArray> fields = line.trimmed().split(' ');
    const qsizetype separator = fields.indexOf(QByteArray("-"));
    if (fields.size() < 5 || separator < 5 || separator + 2 >= fields.size()) {
        return std::nullopt;
    }
    const QList<QByteArray> numbers = fields.at(2).split(':');
    bool majorOk = false;
    bool minorOk = false;
    const uint major = numbers.value(0).toUInt(&majorOk);
    const uint minor = numbers.value(1).toUInt(&minorOk);
    if (numbers.size() != 2 || !majorOk || !minorOk || !fields.at(4).startsWith('/')) {
        return std::nullopt;
    }
    Mount mount;
    mount.mountPoint = decodeOctalEscapes(fields.at(4));
    mount.device = quint64(makedev(major, minor));
    mount.fileSystemType = decodeOctalEscapes(fields.at(separator + 1));
    mount.source = decodeOctalEscapes(fields.at(separator + 2));
    return mount;
}

QList<VolumeCatalog::Mount> SystemVolumeCatalog::mounts() const
{
    QList<Mount> found;
    QFile file(m_mountInfoPath);
    if (!file.open(QIODevice::ReadOnly)) {
        return found;
    }
    // A proc file reports no size: read it as a stream to its end.
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (auto mount = parseMountInfoLine(line)) {
            found.append(*mount);
        }
    }
    return found;
}

QString SystemVolumeCatalog::uuidOf(const Mount& mount) const
{
    if (QString name = linkToDevice(m_byUuidFolder, mount.device); !name.isEmpty()) {
        return decodeHexEscapes(name);
    }
    struct statfs info = {};
    if (::statfs(QFile::encodeName(mount.mountPoint).constData(), &info) != 0) {
        return {};
    }
    int words[2] = {};
    static_assert(sizeof(words) == sizeof(info.f_fsid));
    std::memcpy(words, &info.f_fsid, sizeof(words));
    if (words[0] == 0 && words[1] == 0) {
        return {};
    }
    return QStringLiteral("%1%2")
        .arg(uint(words[0]), 8, 16, QLatin1Char('0'))
        .arg(uint(words[1]), 8, 16, QLatin1Char('0'));
}

QString SystemVolumeCatalog::labelOf(const Mount& mount) const
{
    return decodeHexEscapes(linkToDevice(m_byLabelFolder, mount.device));
}
