#pragma once

#include <functional>

// Tells when the machine wakes from sleep, so that what depends on the date is looked at
// again. Main thread only.
class SleepWatcher
{
public:
    virtual ~SleepWatcher() = default;

    virtual void setWakeHandler(std::function<void()> handler) = 0;
};
