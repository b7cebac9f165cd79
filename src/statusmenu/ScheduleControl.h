#pragma once

#include <optional>

// The scheduler as the status menu and the hold dialog reach it. Times are seconds since
// 2001-01-01. Main thread only.
class ScheduleControl
{
public:
    virtual ~ScheduleControl();

    // The scheduler's hold time; none when the scheduler cannot be asked.
    virtual std::optional<double> queryHoldTime() = 0;
    // Holds every schedule until then; 0 releases the hold.
    virtual void setHoldTime(double seconds) = 0;
};
