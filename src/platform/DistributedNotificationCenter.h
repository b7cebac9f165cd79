#pragma once

#include <QString>
#include <functional>

// Notifications that reach every process of the user (log rotation, the hub's start).
// Observers are called on a thread of the centre's own, so they arrive even while the
// observing process's main thread is busy; they must be thread-safe.
class DistributedNotificationCenter
{
public:
    using Observer = std::function<void(const QString& name, const QString& object)>;

    virtual ~DistributedNotificationCenter();

    virtual void postNotification(const QString& name, const QString& object) = 0;
    // An empty object matches every object. Returns a token for removeObserver.
    virtual int addObserver(const QString& name, const QString& object, Observer observer) = 0;
    virtual void removeObserver(int token) = 0;

    // The session-bus centre unless the composition root or a test chose another.
    static DistributedNotificationCenter& defaultCenter();
    static void setDefaultCenter(DistributedNotificationCenter* center);
};
