#pragma once

#include <QString>
#include <QVariantMap>
#include <optional>

// The seam of the scheduler client: it follows the scheduler's publication and its schedule
// notices once started, and is how a pane reschedules its action.
class SchedulerClient
{
public:
    virtual ~SchedulerClient() = default;
    virtual void initializeScheduler() = 0;
    // The next action ("title", "time"); none when the scheduler cannot be asked.
    virtual std::optional<QVariantMap> queryNextScheduledActionInfo() = 0;
    // False when the scheduler could not be reached. Seconds since 2001-01-01; 0 for none.
    virtual bool setActionToExecuteAt(const QString& actionID, double seconds) = 0;
    // Asks the user when to run the action again.
    virtual void runRescheduleSheet(const QString& actionID) = 0;
};
