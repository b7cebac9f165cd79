#pragma once

#include "core/WTUserPreferences.h"

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
            m_delays.append(delay);
            m_pending.append(std::move(task));
        };
    }

    qsizetype count() const
    {
        QMutexLocker locker(&m_mutex);
        return m_delays.size();
    }

    std::chrono::milliseconds delay(qsizetype index) const
    {
        QMutexLocker locker(&m_mutex);
        return m_delays.at(index);
    }

    // Runs what is due now, as the timer would when the delay has passed.
    void runPending()
    {
        QList<WTUserPreferences::Task> due;
        {
            QMutexLocker locker(&m_mutex);
            due.swap(m_pending);
        }
        for (const WTUserPreferences::Task& task : due) {
            task();
        }
    }

private:
    mutable QMutex m_mutex;
    QList<std::chrono::milliseconds> m_delays;
    QList<WTUserPreferences::Task> m_pending;
};
