#include "references/BookmarkPath.h"

#include "exception/Error.h"
#include "foundation/KeyedArchive.h"
#include "foundation/KeyedDecoder.h"
#include "references/ResourceValues.h"
#include "references/VolumeCatalog.h"
#include "references/VolumeSearch.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace {
// A function, not a constant: registration may run while other files are still initialising.
QString archiveClassName()
{
    return QStringLiteral("Bookmark");
}

const QString kResourcesField = QStringLiteral("resources");
const QString kInodeField = QStringLiteral("inode");
const QString kBirthTimeField = QStringLiteral("birthTime");
const QString kDeviceField = QStringLiteral("device");
const QString kMountPointField = QStringLiteral("mountPoint");
// The URL error code for a URL that names no local file.
constexpr qint64 kBadURLCode = -1000;

Error makeError(const QString& domain, qint64 code, const QString& description, const QUrl& url)
{
    return Error(domain, code,
                 {{Error::kLocalizedDescriptionKey, description},
                  {Error::kFailingURLStringKey, url.toString()}});
}

// The path below the mount point, empty for the mount point itself.
QString relativeTo(const QString& path, const QString& mountPoint)
{
    if (mountPoint == QLatin1String("/")) {
        return path.mid(1);
    }
    if (path.startsWith(mountPoint + QLatin1Char('/'))) {
        return path.mid(mountPoint.size() + 1);
    }
    return {};
}

// The keys a bookmark records: those asked for, and what resolving needs, in the known order.
QStringList keysToRecord(const QStringList& asked)
{
    QStringList keys;
    for (const QString& key : ResourceValues::knownKeys()) {
        if (asked.contains(key) || key == ResourceValues::kPathKey ||
            key == ResourceValues::kVolumeUUIDStringKey) {
            keys.append(key);
        }
    }
    return keys;
}

std::optional<BookmarkPath::Record> makeRecord(const QUrl& url, const QStringList& keys,
                                               Error* error)
{
    if (!url.isLocalFile()) {
        if (error) {
            *error = makeError(Error::kURLDomain, kBadURLCode,
                               QStringLiteral("The URL names no local file."), url);
        }
        return std::nullopt;
    }
    const QString path = QFileInfo(QDir::cleanPath(url.toLocalFile())).canonicalFilePath();
    struct stat status = {};
    if (path.isEmpty() || ::stat(QFile::encodeName(path).constData(), &status) != 0) {
        // canonicalFilePath() fails on what stat() fails on; ask stat() for the reason.
        const int err =
            ::stat(QFile::encodeName(url.toLocalFile()).constData(), &status) != 0 ? errno : ENOENT;
        if (error) {
            *error = makeError(Error::kPOSIXDomain, err, QString::fromLocal8Bit(std::strerror(err)),
                               url);
        }
        return std::nullopt;
    }
    const auto catalog = VolumeCatalog::shared();
    const auto mount = catalog->mountHolding(path, MountTable::mountIdOf(path));
    if (!mount) {
        if (error) {
            *error = makeError(Error::kPOSIXDomain, ENODEV,
                               QStringLiteral("No mounted volume holds the file."), url);
        }
        return std::nullopt;
    }
    BookmarkPath::Record record;
    record.resources = ResourceValues::valuesForFile(path, S_ISDIR(status.st_mode), *mount,
                                                     *catalog, keysToRecord(keys));
    record.inode = quint64(status.st_ino);
    record.birthTime = VolumeSearch::birthTimeOf(path);
    // The mount's own number, not stat()'s: on btrfs they differ.
    record.device = mount->device();
    record.mountPoint = mount->mountPoint;
    return record;
}

// Where the volume of the record is mounted now, the recorded place first.
QList<VolumeCatalog::Mount> candidateMounts(const BookmarkPath::Record& record)
{
    const auto catalog = VolumeCatalog::shared();
    const QString uuid = record.resources.value(ResourceValues::kVolumeUUIDStringKey).toString();
    QList<VolumeCatalog::Mount> mounts;
    if (uuid.isEmpty()) {
        // Without a UUID only the same device at the same place is surely the same volume.
        for (const auto& mount : catalog->mounts()) {
            if (mount.mountPoint == record.mountPoint && mount.device() == record.device) {
                mounts.append(mount);
            }
        }
        return mounts;
    }
    mounts = catalog->mountsOfVolume(uuid);
    std::stable_partition(mounts.begin(), mounts.end(), [&](const VolumeCatalog::Mount& mount) {
        return mount.mountPoint == record.mountPoint;
    });
    return mounts;
}

QVariantMap encodeRecord(const QVariant& object)
{
    const auto record = object.value<BookmarkPath::Record>();
    // Inode and device numbers are kept bit for bit in the archive's signed integers.
    return {{kResourcesField, record.resources},
            {kInodeField, qint64(record.inode)},
            {kBirthTimeField, record.birthTime},
            {kDeviceField, qint64(record.device)},
            {kMountPointField, record.mountPoint}};
}

QVariant decodeRecord(const KeyedDecoder& coder)
{
    BookmarkPath::Record record;
    record.resources =
        coder.decodeObject(kResourcesField, {KeyedArchive::kString, KeyedArchive::kDictionary})
            .toMap();
    record.inode = quint64(coder.decodeInt64(kInodeField));
    record.birthTime = coder.decodeInt64(kBirthTimeField);
    record.device = quint64(coder.decodeInt64(kDeviceField));
    record.mountPoint = coder.decodeStringObject(kMountPointField).value_or(QString());
    return QVariant::fromValue(record);
}
} // namespace

BookmarkPath::BookmarkPath(Record record, bool resolved)
    : m_record(std::move(record))
    , m_resolved(resolved)
{}

std::shared_ptr<BookmarkPath> BookmarkPath::fromBookmarkData(const QByteArray& data)
{
    if (data.isEmpty()) {
        return nullptr;
    }
    registerArchivableClass();
    QVariant root;
    try {
        root = KeyedArchive::unarchivedObject(data,
                                              {archiveClassName(), KeyedArchive::kString,
                                               KeyedArchive::kNumber, KeyedArchive::kDictionary});
    } catch (const std::exception&) {
        // Bytes that are no archive, or an archive of something else, are no bookmark: the
        // caller decides whether that is worth a line in the log.
        return nullptr;
    }
    if (root.metaType() != QMetaType::fromType<Record>()) {
        return nullptr;
    }
    Record record = root.value<Record>();
    const QVariant path = record.resources.value(ResourceValues::kPathKey);
    if (path.metaType().id() != QMetaType::QString || !path.toString().startsWith(u'/')) {
        return nullptr;
    }
    return std::shared_ptr<BookmarkPath>(new BookmarkPath(std::move(record), false));
}

std::shared_ptr<BookmarkPath> BookmarkPath::fromUrl(const QUrl& url)
{
    return fromUrl(url, ResourceValues::knownKeys());
}

std::shared_ptr<BookmarkPath> BookmarkPath::fromUrl(const QUrl& url,
                                                    const QStringList& resourceKeys, Error* error)
{
    auto record = makeRecord(url, resourceKeys, error);
    if (!record) {
        return nullptr;
    }
    return std::shared_ptr<BookmarkPath>(new BookmarkPath(std::move(*record), true));
}

QUrl BookmarkPath::resolveQuietly()
{
    const Record recorded = record();
    const QStringList keys = recordedKeys();
    if (recorded.inode != 0) {
        const QString relative = relativeTo(path(), recorded.mountPoint);
        VolumeSearch search;
        for (const auto& mount : candidateMounts(recorded)) {
            const auto found = search.find(
                mount.mountPoint, {mount.id, mount.device(), recorded.inode, recorded.birthTime},
                relative);
            if (!found) {
                continue;
            }
            if (auto refreshed = makeRecord(QUrl::fromLocalFile(*found), keys, nullptr)) {
                QMutexLocker locker(&m_lock);
                m_record = std::move(*refreshed);
                m_resolved = true;
                m_refreshed = true;
                return QUrl::fromLocalFile(
                    m_record.resources.value(ResourceValues::kPathKey).toString());
            }
        }
    }
    QMutexLocker locker(&m_lock);
    m_resolved = false;
    return {};
}

bool BookmarkPath::refresh(const QStringList& resourceKeys)
{
    auto refreshed = makeRecord(url(), resourceKeys, nullptr);
    if (!refreshed) {
        return false;
    }
    QMutexLocker locker(&m_lock);
    m_record = std::move(*refreshed);
    m_refreshed = true;
    return true;
}

bool BookmarkPath::isResolved() const
{
    QMutexLocker locker(&m_lock);
    return m_resolved;
}

bool BookmarkPath::isRefreshed() const
{
    QMutexLocker locker(&m_lock);
    return m_refreshed;
}

QUrl BookmarkPath::url() const
{
    return QUrl::fromLocalFile(path());
}

QByteArray BookmarkPath::bookmarkData() const
{
    registerArchivableClass();
    return KeyedArchive::archivedData(QVariant::fromValue(record()));
}

QString BookmarkPath::path() const
{
    return recordedValue(ResourceValues::kPathKey).toString();
}

QString BookmarkPath::name() const
{
    const QVariant recorded = recordedValue(ResourceValues::kNameKey);
    return recorded.isValid() ? recorded.toString() : path().section(u'/', -1);
}

QString BookmarkPath::displayName() const
{
    const QVariant recorded = recordedValue(ResourceValues::kLocalizedNameKey);
    return recorded.isValid() ? recorded.toString() : name();
}

QVariant BookmarkPath::recordedValue(const QString& resourceKey) const
{
    QMutexLocker locker(&m_lock);
    return m_record.resources.value(resourceKey);
}

bool BookmarkPath::operator==(const BookmarkPath& other) const
{
    if (&other == this) {
        return true;
    }
    const Record mine = record();
    const Record theirs = other.record();
    if (mine.inode == 0 || theirs.inode == 0) {
        return mine.resources.value(ResourceValues::kPathKey) ==
               theirs.resources.value(ResourceValues::kPathKey);
    }
    if (mine.inode != theirs.inode ||
        (mine.birthTime != 0 && theirs.birthTime != 0 && mine.birthTime != theirs.birthTime)) {
        return false;
    }
    const QString myVolume = mine.resources.value(ResourceValues::kVolumeUUIDStringKey).toString();
    const QString theirVolume =
        theirs.resources.value(ResourceValues::kVolumeUUIDStringKey).toString();
    if (myVolume.isEmpty() && theirVolume.isEmpty()) {
        return mine.device == theirs.device && mine.mountPoint == theirs.mountPoint;
    }
    return myVolume == theirVolume;
}

void BookmarkPath::registerArchivableClass()
{
    static const bool registered = [] {
        KeyedArchive::registerClass<Record>(archiveClassName(), encodeRecord, decodeRecord);
        return true;
    }();
    Q_UNUSED(registered);
}

BookmarkPath::Record BookmarkPath::record() const
{
    QMutexLocker locker(&m_lock);
    return m_record;
}

QStringList BookmarkPath::recordedKeys() const
{
    const QVariantMap resources = record().resources;
    QStringList keys;
    for (const QString& key : ResourceValues::knownKeys()) {
        if (resources.contains(key)) {
            keys.append(key);
        }
    }
    return keys;
}
