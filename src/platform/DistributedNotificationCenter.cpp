#include "platform/DistributedNotificationCenter.h"

#include "platform/linux/DBusDistributedNotificationCenter.h"

#include <atomic>

namespace {
std::atomic<DistributedNotificationCenter*> s_chosen{nullptr};
} // namespace

DistributedNotificationCenter::~DistributedNotificationCenter() = default;

DistributedNotificationCenter& DistributedNotificationCenter::defaultCenter()
{
    if (DistributedNotificationCenter* chosen = s_chosen.load()) {
        return *chosen;
    }
    // Lives until the process ends: loggers observe it from static destructors' time.
    static auto* sessionCenter = new DBusDistributedNotificationCenter;
    return *sessionCenter;
}

void DistributedNotificationCenter::setDefaultCenter(DistributedNotificationCenter* center)
{
    s_chosen.store(center);
}
