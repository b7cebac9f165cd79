#pragma once

#include "platform/ApplicationWatcher.h"

// Keeps the handlers, so that a test plays applications starting and quitting.
class FakeApplicationWatcher final : public ApplicationWatcher
{
public:
    void startWatching(Handler launched, Handler terminated) override
    {
        m_launched = launched;
        m_terminated = terminated;
    }
    QStringList runningApplications() const override { return m_running; }
    Handler m_launched;
    Handler m_terminated;
    QStringList m_running;
};
