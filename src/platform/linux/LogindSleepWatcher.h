#pragma once

#include "platform/SleepWatcher.h"

#include <QObject>

// logind's PrepareForSleep(false) on the system bus: the machine has woken. Without a system
// bus (a container, a test) no wake is ever heard, which is all that is lost.
class LogindSleepWatcher final : public QObject, public SleepWatcher
{
    Q_OBJECT

public:
    explicit LogindSleepWatcher(QObject* parent = nullptr);

    void setWakeHandler(std::function<void()> handler) override;

private Q_SLOTS:
    void prepareForSleep(bool sleeping);

private:
    std::function<void()> m_wakeHandler;
};
