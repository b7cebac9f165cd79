#pragma once

#include <QByteArray>
#include <memory>

class CaptureHistory;
class RecentCaptures;

// The capture history as the monitoring interface serves it: empty answers until the
// composition root gives it the history of recent captures.
class RecentArchives
{
public:
    explicit RecentArchives(std::shared_ptr<RecentCaptures> captures = {});
    virtual ~RecentArchives();
    virtual void updateRecentRepositoryCache();
    // A volume mounted: archives that were out of reach may be back.
    virtual void volumeDidMount();
    // Keyed archives of arrays; an empty array without a history.
    virtual QByteArray recentlyCapturedRepositories() const;
    virtual QByteArray findRepositoriesForItems(const QByteArray& items) const;
    // What the progress managers tell when a command ends; none without a history.
    CaptureHistory* captureHistory() const;

private:
    std::shared_ptr<RecentCaptures> m_captures;
};
