#pragma once

#include "core/RepeatingTimer.h"

#include <memory>
#include <vector>

// Repeating timers on a clock the test moves: advancing fires every live timer once for each
// whole interval that passes.
class ManualTimers
{
public:
    RepeatingTimer::Factory factory()
    {
        return [this](std::chrono::milliseconds interval, std::function<void()> fire) {
            auto timer =
                std::make_shared<Entry>(Entry{interval, m_now + interval, std::move(fire)});
            m_timers.push_back(timer);
            return std::make_unique<Handle>(timer);
        };
    }

    void advance(std::chrono::milliseconds by)
    {
        const std::chrono::milliseconds end = m_now + by;
        for (bool fired = true; fired;) {
            fired = false;
            for (const auto& timer : std::vector(m_timers)) {
                if (timer->live && timer->due <= end) {
                    m_now = timer->due;
                    timer->due += timer->interval;
                    timer->fire();
                    fired = true;
                }
            }
        }
        m_now = end;
    }

    qsizetype live() const
    {
        return std::count_if(m_timers.cbegin(), m_timers.cend(),
                             [](const auto& timer) { return timer->live; });
    }

private:
    struct Entry
    {
        std::chrono::milliseconds interval;
        std::chrono::milliseconds due;
        std::function<void()> fire;
        bool live = true;
    };
    class Handle : public RepeatingTimer
    {
    public:
        explicit Handle(std::shared_ptr<Entry> entry)
            : m_entry(std::move(entry))
        {}
        ~Handle() override { stop(); }
        void stop() override { m_entry->live = false; }

    private:
        std::shared_ptr<Entry> m_entry;
    };

    std::chrono::milliseconds m_now{0};
    std::vector<std::shared_ptr<Entry>> m_timers;
};
