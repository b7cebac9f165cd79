#include "core/RepeatingTimer.h"

#include <QTimer>

namespace {
class EventLoopTimer : public RepeatingTimer
{
public:
    EventLoopTimer(std::chrono::milliseconds interval, std::function<void()> fire)
    {
        m_timer.setInterval(interval);
        QObject::connect(&m_timer, &QTimer::timeout, std::move(fire));
        m_timer.start();
    }
    void stop() override { m_timer.stop(); }

private:
    QTimer m_timer;
};
} // namespace

RepeatingTimer::Factory RepeatingTimer::mainThreadFactory()
{
    return [](std::chrono::milliseconds interval, std::function<void()> fire) {
        return std::make_unique<EventLoopTimer>(interval, std::move(fire));
    };
}
