#pragma once

#include "tracking/CommandListener.h"

#include <QThread>
#include <atomic>

// A listener that counts what the service tells it and answers the cull question as told.
class RecordingListener : public CommandListener
{
    Q_OBJECT

public:
    void willBeAddedToService(CommandListenerService* service) override
    {
        ++added;
        CommandListener::willBeAddedToService(service);
    }
    void wasRemovedFromService(CommandListenerService* service) override
    {
        ++removed;
        CommandListener::wasRemovedFromService(service);
    }
    bool shouldBeCulledFromService(CommandListenerService* /*service*/) override
    {
        askedOnMainThread = QThread::currentThread() == thread();
        ++asked;
        return cullAnswer.load();
    }

    int added = 0;
    int removed = 0;
    std::atomic<int> asked{0};
    std::atomic<bool> askedOnMainThread{false};
    std::atomic<bool> cullAnswer{true};
};
