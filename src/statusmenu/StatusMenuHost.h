#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <QVariantList>
#include <optional>

class CommandUmbrellaViewController;

// What the status menu shows and does, answered by the application: the activity window's
// panes and next action, the archives' states, the scheduler. Main thread only.
class StatusMenuHost
{
public:
    struct NextAction
    {
        QString title;
        QDateTime time;
    };
    struct ArchiveStates
    {
        bool hasStatus = false;
        bool warnings = false;
        bool criticals = false;
    };

    virtual ~StatusMenuHost();

    virtual QList<CommandUmbrellaViewController*> orderedViewControllers() = 0;
    virtual NextAction nextAction() = 0;
    virtual ArchiveStates archiveStates() = 0;
    virtual bool showStatusInStatusItem() = 0;
    virtual QDateTime now() = 0;

    virtual bool schedulerConnected() = 0;
    virtual std::optional<QDateTime> holdDate() = 0;
    // None when the scheduler cannot be asked.
    virtual std::optional<QVariantList> queryActionsInfo() = 0;
    virtual void runActionNow(const QString& actionID) = 0;
    // Half hours from the current whole minute; 0 asks the user until when.
    virtual void holdSchedules(int halfHours) = 0;
    virtual void resumeSchedules() = 0;

    virtual void orderMonitorWindowFront() = 0;
    virtual void orderStatusWindowFront() = 0;
    virtual void launchClient() = 0;
    virtual void quit() = 0;
};
