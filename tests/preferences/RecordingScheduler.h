#pragma once

#include "preferences/WTUserPreferences.h"

#include <QList>
#include <QMutex>
#include <chrono>

// Stands in for the main-thread timer: keeps what was scheduled, runs it when the test says.
class RecordingScheduler
{
public:
    WTUserPreferences::Scheduler scheduler()
    {
        return [this](std::chrono::milliseconds delay, WTUserPreferences::Task task) {
            QMutexLocker locker(&m_mutex);
            delays.append(delay);
            m_pending.append(std::move(task));
        };
    }

    qsizetype count() const { return delays.size(); }

    // Runs what is due now, as the timer would when the delay has passed.
    void runPending()
    {
        QMutexLocker locker(&m_mutex);
        const QList<WTUserPreferences::Task> due = std::exchange(m_pending, {});
        locker.unlock();
        for (const WTUserPreferences::Task& task : due) {
            task();
        }
    }

    QList<std::chrono::milliseconds> delays;

private:
    QMutex m_mutex;
    QList<WTUserPreferences::Task> m_pending;
};
