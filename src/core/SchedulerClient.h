#pragma once

// The seam of the scheduler client: it follows the scheduler's publication and its schedule
// notices once started. The default does nothing until the composition root installs the real one.
class SchedulerClient
{
public:
    virtual ~SchedulerClient() = default;
    virtual void initializeScheduler() {}
};
