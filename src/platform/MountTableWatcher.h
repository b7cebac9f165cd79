#pragma once

#include <QString>
#include <functional>

// Volumes appearing in and leaving the mount table, named by their mount points.
// Handlers run on the main thread.
class MountTableWatcher
{
public:
    using Handler = std::function<void(const QString& mountPoint)>;

    virtual ~MountTableWatcher() = default;
    // Takes the current table as known and reports only later changes.
    virtual void startWatching(Handler mounted, Handler unmounted) = 0;
};
