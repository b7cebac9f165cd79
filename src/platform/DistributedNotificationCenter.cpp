#include "platform/DistributedNotificationCenter.h"

#include "platform/linux/DBusDistributedNotificationCenter.h"

#include <QCoreApplication>
#include <atomic>

namespace {
std::atomic<DistributedNotificationCenter*> s_chosen{nullptr};
DBusDistributedNotificationCenter* s_sessionCenter = nullptr;

// Stops the centre's thread with the application object, before static destructors run.
void stopSessionCenter()
{
    if (s_sessionCenter != nullptr) {
        s_sessionCenter->stop();
    }
}
} // namespace

DistributedNotificationCenter::~DistributedNotificationCenter() = default;

DistributedNotificationCenter& DistributedNotificationCenter::defaultCenter()
{
    if (DistributedNotificationCenter* chosen = s_chosen.load()) {
        return *chosen;
    }
    // Lives until the process ends: loggers may post to it until then.
    static auto* sessionCenter = [] {
        s_sessionCenter = new DBusDistributedNotificationCenter;
        qAddPostRoutine(stopSessionCenter);
        return s_sessionCenter;
    }();
    return *sessionCenter;
}

void DistributedNotificationCenter::setDefaultCenter(DistributedNotificationCenter* center)
{
    s_chosen.store(center);
}
