#pragma once

#include "activity/ActivityWindowHost.h"
#include "core/ActivityWindow.h"
#include "statusmenu/RunActionsControllerDelegate.h"

#include <memory>

class ActivityWindowController;
class MonitorApplicationDelegate;
class RunActionsAtController;

// The real activity window behind the core's seam: the window controller makes the panes, and
// this object answers what the window asks of the application through the delegate.
// Main thread only.
class MonitorActivityWindow final : public ActivityWindow,
                                    public ActivityWindowHost,
                                    public RunActionsControllerDelegate
{
public:
    MonitorActivityWindow(MonitorApplicationDelegate& delegate, Factory factory);
    ~MonitorActivityWindow() override;

    ActivityWindowController& controller() const { return *m_controller; }

    // ActivityWindow
    std::shared_ptr<CommandListener> listenerForCommandIdentifier(const QString& identifier,
                                                                  const QVariantMap& info) override;
    void willAddListener(CommandListener* listener) override;
    void showActivityWindowInFront(bool front) override;
    bool isVisible() const override;
    bool waitForRunningCommandsBecause(quint32 reason) override;
    ActivityWindowController* windowController() const override { return m_controller.get(); }

    // ActivityWindowHost
    std::shared_ptr<CommandListener> monitorRunningCommand(const QString& identifier,
                                                           const QVariantMap& info) override;
    void setDockActivityPaneCount(int count) override;
    void showStatusItemStates(bool show, quint64 states) override;
    bool viewLogLine(const LogLine& line) override;
    void openRepository(const QString& path, qint32 action) override;
    void launchClient() override;
    bool updateAvailable() const override;
    QString readableVersionAvailable() const override;
    void setClientAppRunning(bool running) override;
    std::optional<QVariantMap> queryNextScheduledActionInfo() override;
    bool setActionToExecuteAt(const QString& actionID, double seconds) override;
    void runRescheduleSheet(const QString& actionID) override;
    void runShutdownSheet(quint32 reason) override;
    QVariant impermanentValue(const QString& key, const QString& identifier) override;
    void setImpermanentValue(const QVariant& value, const QString& key,
                             const QString& identifier) override;

    // RunActionsControllerDelegate: the sheet that reschedules a stopped command's action.
    void runAction(const QString& actionID, const QDateTime& at) override;
    QWidget* window() override;

private:
    MonitorApplicationDelegate& m_delegate;
    Factory m_factory;
    std::unique_ptr<ActivityWindowController> m_controller;
    std::unique_ptr<RunActionsAtController> m_rescheduleSheet;
};
