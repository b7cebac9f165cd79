#pragma once

#include "logging/LogLineIdentifier.h"

#include <QByteArray>
#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <memory>
#include <optional>

class CommandListener;

// What the activity window asks of the application around it: the factory of command
// managers, the dock and status item, the client application, the scheduler, the update
// watch and the per-action memory. The window sits below the application core, so the core
// implements this and hands it over at start-up. Every call has a quiet default, so that the
// window also works on its own (in tests, and before the subsystems behind it exist).
// Main thread only.
class ActivityWindowHost
{
public:
    virtual ~ActivityWindowHost();

    virtual std::shared_ptr<CommandListener> monitorRunningCommand(const QString& identifier,
                                                                   const QVariantMap& info);
    virtual void setDockActivityPaneCount(int count);
    virtual void showStatusItemStates(bool show, quint64 states);

    // True when the client application took the request; false lets the window show the
    // line itself.
    virtual bool viewLogLine(const LogLine& line);
    virtual void openRepository(const QString& path, qint32 action);
    virtual void launchClient();

    virtual bool updateAvailable() const;
    virtual QString readableVersionAvailable() const;
    virtual void setClientAppRunning(bool running);

    // The scheduler's next action ("title", "time"); none when the scheduler cannot be asked.
    virtual std::optional<QVariantMap> queryNextScheduledActionInfo();
    // False when the scheduler could not be reached. Seconds since 2001-01-01; 0 for none.
    virtual bool setActionToExecuteAt(const QString& actionID, double seconds);
    // Asks the user when to run the action again.
    virtual void runRescheduleSheet(const QString& actionID);
    // Holds back a quit while commands run.
    virtual void runShutdownSheet(quint32 reason);

    // The path of an archive reference's keyed archive; empty when it cannot be resolved.
    virtual QString repositoryPath(const QByteArray& reference) const;

    // The per-action memory that expires when the action is no longer run.
    virtual QVariant impermanentValue(const QString& key, const QString& identifier);
    virtual void setImpermanentValue(const QVariant& value, const QString& key,
                                     const QString& identifier);
};
