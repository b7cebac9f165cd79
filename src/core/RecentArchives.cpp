#include "core/RecentArchives.h"

#include "foundation/KeyedArchive.h"
#include "logging/Logger.h"
#include "status/RecentCaptures.h"

#include <QStringList>

RecentArchives::RecentArchives(std::shared_ptr<RecentCaptures> captures)
    : m_captures(std::move(captures))
{}

RecentArchives::~RecentArchives() = default;

void RecentArchives::updateRecentRepositoryCache()
{
    if (m_captures) {
        m_captures->updateRecentRepositoryCache();
    }
}

void RecentArchives::volumeDidMount()
{
    if (m_captures) {
        m_captures->updateHistoryNotification(RecentCaptures::kVolumeDidMount);
    }
}

QByteArray RecentArchives::recentlyCapturedRepositories() const
{
    return KeyedArchive::archivedData(m_captures ? m_captures->recentlyCapturedRepositories()
                                                 : QVariantList());
}

QByteArray RecentArchives::findRepositoriesForItems(const QByteArray& items) const
{
    if (!m_captures) {
        return KeyedArchive::archivedData(QVariantList());
    }
    QStringList paths;
    try {
        const QVariant decoded =
            KeyedArchive::unarchivedObject(items, {KeyedArchive::kArray, KeyedArchive::kString});
        for (const QVariant& path : decoded.toList()) {
            paths.append(path.toString());
        }
    } catch (const std::exception& exception) {
        // A peer that sends no array of paths asked about nothing.
        Logger::log(4, nullptr, QStringLiteral("findRepositoriesForItems: no paths"), &exception);
    }
    return KeyedArchive::archivedData(m_captures->findRepositoriesForItems(paths));
}

CaptureHistory* RecentArchives::captureHistory() const
{
    return m_captures.get();
}
