#pragma once

#include <QByteArray>

// The seam of the capture history: empty answers until the composition root installs it.
class RecentArchives
{
public:
    virtual ~RecentArchives() = default;
    virtual void updateRecentRepositoryCache() {}
    // Keyed archives of arrays; an empty array until the capture history exists.
    virtual QByteArray recentlyCapturedRepositories() const;
    virtual QByteArray findRepositoriesForItems(const QByteArray& items) const;
};
