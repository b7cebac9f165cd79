#include "status/RecentCaptures.h"

#include "foundation/KeyedArchive.h"
#include "logging/Logger.h"
#include "messaging/ClientIdentifier.h"
#include "messaging/FullyQualifiedIdentifier.h"
#include "preferences/PreferenceStore.h"
#include "references/BookmarkPath.h"
#include "references/RepositoryReference.h"
#include "references/ResourceValues.h"
#include "references/VolumeCatalog.h"
#include "status/RepositoryStatus.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <algorithm>
#include <utility>

namespace {

const QString kName = QStringLiteral("name");
const QString kAlias = QStringLiteral("alias");
const QString kDisplay = QStringLiteral("display");
const QString kRepository = QStringLiteral("repository");
const QString kModified = QStringLiteral("modified");
const char* const kRebuildOperation = "-[MonitorApplicationDelegate(MonitorDelegateCaptureHistory) "
                                      "updateRecentCaptureHistoryReevaluating:]";

} // namespace

RecentCaptures::RecentCaptures(QString folder, Clock clock, Runner runner)
    : m_folder(folder.isEmpty() ? defaultFolder() : std::move(folder))
    , m_clock(clock ? std::move(clock) : [] { return QDateTime::currentDateTimeUtc(); })
    , m_runner(std::move(runner))
{}

RecentCaptures::~RecentCaptures() = default;

QString RecentCaptures::defaultFolder()
{
    return QDir(PreferenceStore::defaultFolder()).filePath(kFolderName);
}

void RecentCaptures::updateRecentRepositoryCache()
{
    scheduleRebuild(false);
}

void RecentCaptures::scheduleRebuild(bool reevaluate)
{
    {
        QMutexLocker locker(&m_scheduleLock);
        m_pendingReevaluates = m_pendingReevaluates || reevaluate;
        if (std::exchange(m_rebuildPending, true)) {
            return;
        }
    }
    m_runner([weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) {
            return;
        }
        bool reevaluates = false;
        {
            QMutexLocker locker(&self->m_scheduleLock);
            self->m_rebuildPending = false;
            reevaluates = std::exchange(self->m_pendingReevaluates, false);
        }
        try {
            self->updateRecentCaptureHistoryReevaluating(reevaluates);
        } catch (const std::exception& exception) {
            Logger::log(4, exception);
        }
    });
}

void RecentCaptures::updateHistoryNotification()
{
    updateRecentRepositoryCache();
}

void RecentCaptures::updateHistoryNotification(const QString& notificationName)
{
    if (notificationName == kVolumeDidMount) {
        scheduleRebuild(true);
    }
}

QString RecentCaptures::evaluate(const QString& name, const QString& path,
                                 const QDateTime& modified,
                                 const std::shared_ptr<OutlineComponents>& components,
                                 Record& record) const
{
    QFile file(path);
    const QByteArray alias = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    const auto bookmark = BookmarkPath::fromBookmarkData(alias);
    if (!bookmark) {
        // Perhaps written this moment, or by a newer capture: not ours to delete.
        Logger::log(4, QStringLiteral("Capture history file %1 could not be read: %2")
                           .arg(name, file.error() != QFileDevice::NoError
                                          ? file.errorString()
                                          : QStringLiteral("no bookmark")));
        if (modified.secsTo(m_clock()) > kMaximumAge) {
            return QStringLiteral("Capture history file %1 hasn't been updated recently").arg(name);
        }
        record.info = {{kName, name}, {kModified, modified}};
        return {};
    }
    QString display = bookmark->recordedValue(ResourceValues::kLocalizedNameKey).toString();
    if (display.isEmpty()) {
        display = bookmark->displayName();
    }
    const QUrl url = bookmark->resolveQuietly();
    std::optional<OutlineTree> outline;
    if (!url.isEmpty()) {
        QFile index(QDir(url.toLocalFile()).filePath(kOutlineFileName));
        if (index.exists() && !index.open(QIODevice::ReadOnly)) {
            // Data that cannot be read now may be read later: only data that cannot be
            // interpreted condemn the history.
            Logger::log(4, QStringLiteral("Outline of archive %1 could not be read: %2")
                               .arg(display, index.errorString()));
        } else if (index.isOpen()) {
            outline = OutlineTree::read(index.readAll(), components);
            if (!outline) {
                return QStringLiteral("Capture history for archive %1 couldn't be interpreted")
                    .arg(display);
            }
        }
    } else {
        const QString volume =
            bookmark->recordedValue(ResourceValues::kVolumeUUIDStringKey).toString();
        if (!volume.isEmpty() && !VolumeCatalog::shared()->mountsOfVolume(volume).isEmpty()) {
            return QStringLiteral("Capture history for archive %1 appears to have been deleted")
                .arg(display);
        }
    }
    if (modified.secsTo(m_clock()) > kMaximumAge) {
        return QStringLiteral("Capture history for archive %1 hasn't been updated recently")
            .arg(display);
    }
    record.info = {{kName, name}, {kAlias, alias}, {kDisplay, display}, {kModified, modified}};
    if (!url.isEmpty()) {
        record.info.insert(kRepository, url.toLocalFile());
        // Kept in the form that answers questions about items; an archive without an outline
        // holds nothing that can be asked about.
        if (outline) {
            record.outline = std::make_shared<const OutlineTree>(std::move(*outline));
        }
    }
    return {};
}

void RecentCaptures::updateRecentCaptureHistoryReevaluating(bool reevaluate)
{
    QMutexLocker rebuilding(&m_rebuildLock);
    QHash<QString, Record> cache;
    {
        QMutexLocker locker(&m_recentLock);
        cache = m_recentAliasInfo;
    }
    QHash<QString, Record> rebuilt;
    // The levels of this rebuild's outlines, kept once for all of them.
    const auto components = std::make_shared<OutlineComponents>();
    const QDir folder(m_folder);
    const QFileInfoList entries = folder.exists()
                                      ? folder.entryInfoList(QDir::Files | QDir::Hidden, QDir::Name)
                                      : QFileInfoList();
    for (const QFileInfo& entry : entries) {
        const QString name = entry.fileName();
        const QDateTime modified = entry.lastModified().toUTC();
        const auto cached = cache.constFind(name);
        if (!reevaluate && cached != cache.cend() && cached->info.contains(kRepository) &&
            cached->info.value(kModified).toDateTime() == modified) {
            rebuilt.insert(name, *cached);
            continue;
        }
        Record record;
        const QString stale = evaluate(name, entry.filePath(), modified, components, record);
        if (stale.isEmpty()) {
            rebuilt.insert(name, std::move(record));
            continue;
        }
        Logger::log(6, stale);
        if (QFile::remove(entry.filePath())) {
            Logger::logFormat(9, "%s deleted %s", kRebuildOperation,
                              QFile::encodeName(entry.filePath()).constData());
        }
    }
    for (auto it = cache.cbegin(); it != cache.cend(); ++it) {
        if (!rebuilt.contains(it.key())) {
            Logger::log(9, QStringLiteral("removing recent alias '%1'").arg(it.key()));
        }
    }
    QList<Record> byDate = rebuilt.values();
    std::stable_sort(byDate.begin(), byDate.end(), [](const Record& left, const Record& right) {
        return left.info.value(kModified).toDateTime() > right.info.value(kModified).toDateTime();
    });
    // The old records are freed after the lock: a history of many outlines takes a while.
    QHash<QString, Record> replaced;
    QList<Record> replacedByDate;
    QMutexLocker locker(&m_recentLock);
    replaced = std::exchange(m_recentAliasInfo, std::move(rebuilt));
    replacedByDate = std::exchange(m_recentByDate, std::move(byDate));
    locker.unlock();
}

QVariantMap RecentCaptures::resultRecord(const QVariantMap& info)
{
    const QString path = info.value(kRepository).toString();
    QByteArray cpath = QFile::encodeName(path);
    cpath.append('\0');
    return {{QStringLiteral("path"), path},
            {QStringLiteral("cpath"), cpath},
            {QStringLiteral("name"), info.value(kDisplay)}};
}

QVariantList RecentCaptures::recentlyCapturedRepositories() const
{
    QVariantList results;
    QMutexLocker locker(&m_recentLock);
    try {
        for (const Record& record : m_recentByDate) {
            if (record.info.contains(kRepository)) {
                results.append(resultRecord(record.info));
            }
        }
    } catch (const std::exception& exception) {
        Logger::log(4, exception);
    }
    return results;
}

QVariantList RecentCaptures::findRepositoriesForItems(const QStringList& itemPaths) const
{
    // Outlines name their owner; a question about items may come from any of them.
    const ClientIdentifier anyClient(QStringLiteral("*"), ClientIdentifier::kWildcardNumber);
    // Published records never change: a copy taken under the lock is asked without it, as
    // finding an item's volume reads files.
    QList<Record> records;
    {
        QMutexLocker locker(&m_recentLock);
        records = m_recentByDate;
    }
    FullyQualifiedIdentifier::PathResolver paths;
    std::vector<bool> matched(size_t(records.size()), false);
    qsizetype unmatched = 0;
    for (const Record& record : std::as_const(records)) {
        unmatched += record.outline ? 1 : 0;
    }
    for (const QString& path : itemPaths) {
        if (unmatched == 0) {
            break;
        }
        const FQIdentifier item = paths.identifierWithPath(path, anyClient);
        if (!item) {
            continue;
        }
        const QVariantList levels = item->identifiers();
        for (qsizetype i = 0; i < records.size(); ++i) {
            const auto& outline = records.at(i).outline;
            if (!matched[size_t(i)] && outline && outline->holds(levels)) {
                matched[size_t(i)] = true;
                --unmatched;
            }
        }
    }
    QVariantList results;
    for (qsizetype i = 0; i < records.size(); ++i) {
        if (matched[size_t(i)]) {
            results.append(resultRecord(records.at(i).info));
        }
    }
    return results;
}

QString RecentCaptures::writeOutline(const QString& repositoryPath,
                                     const QList<FQIdentifier>& items)
{
    QVariantList entries;
    entries.reserve(items.size());
    for (const FQIdentifier& item : items) {
        entries.append(QVariant::fromValue(item));
    }
    QSaveFile file(QDir(repositoryPath).filePath(kOutlineFileName));
    const QByteArray data = KeyedArchive::archivedData(entries);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.commit()) {
        return file.errorString();
    }
    return {};
}

QString RecentCaptures::recordCapture(const QString& repositoryPath, const QString& folder)
{
    const auto bookmark = BookmarkPath::fromUrl(
        QUrl::fromLocalFile(repositoryPath), RepositoryReference::essentialBookmarkPropertyKeys());
    if (!bookmark) {
        return QStringLiteral("no bookmark can be made of %1").arg(repositoryPath);
    }
    const QString target = folder.isEmpty() ? defaultFolder() : folder;
    QString name = RepositoryStatus::storedUUIDForRepositoryURL(repositoryPath);
    if (name.isEmpty()) {
        name = QFileInfo(repositoryPath).fileName();
    }
    if (!QDir().mkpath(target)) {
        return QStringLiteral("cannot create %1").arg(target);
    }
    QSaveFile file(QDir(target).filePath(name));
    const QByteArray data = bookmark->bookmarkData();
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.commit()) {
        return file.errorString();
    }
    return {};
}
