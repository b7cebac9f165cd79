#pragma once

#include <QDateTime>
#include <QString>
#include <QVariantList>
#include <QVariantMap>
#include <optional>

// The seam of the scheduler client: it follows the scheduler's publication and its hold
// notices once started, and is how the status menu and a pane reach the scheduler.
// Main thread only, unless a method says otherwise.
class SchedulerClient
{
public:
    virtual ~SchedulerClient() = default;
    virtual void initializeScheduler() = 0;
    // The next action ("title", "time"); none when the scheduler cannot be asked.
    virtual std::optional<QVariantMap> queryNextScheduledActionInfo() = 0;
    // False when the scheduler could not be reached. Seconds since 2001-01-01; 0 for none.
    virtual bool setActionToExecuteAt(const QString& actionID, double seconds) = 0;

    // Whether the scheduler is published now.
    virtual bool connected() const = 0;
    // Until when every schedule is held; none when it is not. Any thread.
    virtual std::optional<QDateTime> holdDate() const = 0;
    // The scheduler's actions ("title", "repname", "uuid", "runnable"); none when it cannot
    // be asked or answered with something else.
    virtual std::optional<QVariantList> queryActionsInfo() = 0;
    // Holds for that many half hours from the current whole minute; 0 or less asks the user
    // until when.
    virtual void holdSchedules(int halfHours) = 0;
    virtual void resumeSchedules() = 0;
};
