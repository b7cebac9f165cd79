#pragma once

#include "platform/SleepWatcher.h"

// Keeps the handler, so that a test plays the machine waking.
class FakeSleepWatcher final : public SleepWatcher
{
public:
    void setWakeHandler(std::function<void()> handler) override { m_wake = std::move(handler); }
    std::function<void()> m_wake;
};
