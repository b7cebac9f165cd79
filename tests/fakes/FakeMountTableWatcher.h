#pragma once

#include "platform/MountTableWatcher.h"

// Keeps the handlers, so that a test plays a volume mounting and leaving.
class FakeMountTableWatcher final : public MountTableWatcher
{
public:
    void startWatching(Handler mounted, Handler unmounted) override
    {
        m_mounted = mounted;
        m_unmounted = unmounted;
    }
    Handler m_mounted;
    Handler m_unmounted;
};
