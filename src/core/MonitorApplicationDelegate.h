#pragma once

#include "core/ActivityWindow.h"
#include "core/ArchiveStatusWindow.h"
#include "core/CommandRequests.h"
#include "core/DesktopEvents.h"
#include "core/RecentArchives.h"
#include "core/SchedulerClient.h"
#include "core/ShutdownSheet.h"
#include "core/StatusItem.h"
#include "core/UpdateController.h"
#include "logging/LogLineIdentifier.h"
#include "platform/ApplicationSession.h"

#include <QDateTime>
#include <QObject>
#include <QSet>
#include <QVariant>
#include <functional>
#include <memory>
#include <optional>

class ActivityProgressManager;
class CommandListener;
class ImpermanentValues;
class KSConnectionServiceSingleton;
class ThemeChangeObserver;

// The one object that ties the monitor together: it starts the subsystems in their fixed
// order, serves the monitoring interface, makes a progress manager for every command that
// reports, and decides how a quit ends. Main thread only, unless a method says otherwise.
class MonitorApplicationDelegate : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool monitorIsAccessoryApp READ monitorIsAccessoryApp WRITE setMonitorIsAccessoryApp
                   NOTIFY monitorIsAccessoryAppChanged)
    Q_PROPERTY(
        int regularAppMode READ regularAppMode WRITE setRegularAppMode NOTIFY regularAppModeChanged)
    Q_PROPERTY(bool showMonitorOnStart READ showMonitorOnStart WRITE setShowMonitorOnStart)
    Q_PROPERTY(
        bool hideMonitorWhenComplete READ hideMonitorWhenComplete WRITE setHideMonitorWhenComplete)
    Q_PROPERTY(
        bool showMonitorInAllSpaces READ showMonitorInAllSpaces WRITE setShowMonitorInAllSpaces)
    Q_PROPERTY(bool showStatusItem READ showStatusItem WRITE setShowStatusItem)
    Q_PROPERTY(
        bool showStatusInStatusItem READ showStatusInStatusItem WRITE setShowStatusInStatusItem)

public:
    static inline const QString kComponentVersion = QStringLiteral("Monitor-2.2.5.12");
    static constexpr quint32 kBuildNumber = 140556;
    static constexpr int kCleanExit = 0;
    static constexpr int kAbnormalExit = 75;

    struct Subsystems
    {
        // Every one must be set: missing wiring shows at start-up, not when a user needs it.
        std::unique_ptr<StatusItem> statusItem;
        std::unique_ptr<ArchiveStatusWindow> statusWindow;
        std::unique_ptr<DesktopEvents> desktopEvents;
        std::unique_ptr<RecentArchives> recentArchives;
        std::unique_ptr<CommandRequests> commandRequests;
        std::unique_ptr<ApplicationSession> session;
        std::unique_ptr<SchedulerClient> scheduler;
        std::unique_ptr<UpdateController> updateController;
        std::unique_ptr<ShutdownSheet> shutdownSheet;
        // Makes the activity window at launch.
        std::function<std::unique_ptr<ActivityWindow>(MonitorApplicationDelegate&,
                                                      ActivityWindow::Factory)>
            makeActivityWindow;

        // The names of the seams left unset.
        QStringList missing() const;
    };
    using Clock = std::function<QDateTime()>;
    // An activation this soon after the monitor's own switch to a regular application is that
    // switch's echo, not the user's.
    static constexpr qint64 kActivationEchoMs = 2000;

    // Throws std::invalid_argument naming the seams left unset.
    explicit MonitorApplicationDelegate(Subsystems subsystems, Clock clock = {});
    ~MonitorApplicationDelegate() override;

    static MonitorApplicationDelegate* sharedDelegate();
    // Registers the defaults; runs once, before any instance.
    static void initializeClass();

    void applicationDidFinishLaunching();
    // The exit status when the quit goes ahead now; none when it waits (terminate later).
    void applicationDidBecomeActive();
    std::optional<int> applicationShouldTerminate();
    void applicationWillTerminate();
    bool terminateCleanly() const { return m_terminateCleanly; }
    // Every quit goes through here: asks whether to quit now and, when it does, ends the event
    // loop with the exit status after the clean-up. A quit held back waits for the answer below.
    void terminate();
    void replyToApplicationShouldTerminate(bool shouldTerminate);

    static bool canMonitorCommandName(const QString& name);
    std::shared_ptr<ActivityProgressManager>
    monitorRunningCommandWithIdentifier(const QString& identifier, const QVariantMap& info);

    void orderMonitorWindowFront();
    void orderMonitorWindowFrontIfVisible();
    void orderStatusWindowFront();
    // Asks the client to open the archive with an action code, or the log at a line.
    void openRepository(const QString& path, qint32 action);
    // Starts the main application (so that it checks for an update at its start).
    void launchClient();
    // False when no client application took the request (none, no line, or unreachable).
    bool viewLogLine(const LogLine& line);
    // The icon's state bits (panes present, schedules held, archive warning or critical); the
    // icon is drawn again only when they change.
    void updateStatusItemState(quint64 state);
    // Sets (show) or clears the bits of `states` in the icon's state.
    void showStatusItemStates(bool show, quint64 states);
    quint64 statusImageState() const { return m_statusImageState; }
    SchedulerClient& scheduler() const { return *m_subsystems.scheduler; }
    UpdateController& updateController() const { return *m_subsystems.updateController; }
    ShutdownSheet& shutdownSheet() const { return *m_subsystems.shutdownSheet; }
    // Remembers the monitor's own switch to a regular application and who had the focus.
    // A switch to regular is remembered for the activation it causes; any other switch
    // forgets it.
    void noteActivationPolicyChange(bool regular, const QString& previouslyActiveApplication);
    ImpermanentValues& impermanentValues() { return *m_impermanentValues; }
    bool statusWindowHasStatus() const;
    ArchiveStatusWindow& statusWindow() const { return *m_subsystems.statusWindow; }
    void refreshRecentRepositoryCache();
    // Tells the switchboard which applications run now.
    void refreshRunningApplications();
    QByteArray recentlyCapturedRepositories() const;
    QByteArray repositoriesForItems(const QByteArray& items) const;
    // The activity window's pane count, shown on the dock.
    void setDockActivityPaneCount(quint64 count);
    void setUserNotificationForType(int type, bool enabled);
    bool enabledUserNotificationForType(int type) const;
    // The monitor's own settings (mapped keys) on the main thread only, so that the setters'
    // side effects run there; any other key from any thread.
    bool setComponentPreferenceValue(const QVariant& value, const QString& key);
    QVariant componentPreferenceForKey(const QString& key) const;
    ActivityWindow& activityWindow() { return *m_activityWindow; }

    bool monitorIsAccessoryApp() const;
    void setMonitorIsAccessoryApp(bool value);
    int regularAppMode() const;
    void setRegularAppMode(int value);
    bool showMonitorOnStart() const;
    void setShowMonitorOnStart(bool value);
    bool hideMonitorWhenComplete() const;
    void setHideMonitorWhenComplete(bool value);
    bool showMonitorInAllSpaces() const;
    void setShowMonitorInAllSpaces(bool value);
    bool showStatusItem() const;
    void setShowStatusItem(bool value);
    bool showStatusInStatusItem() const;
    void setShowStatusInStatusItem(bool value);

    static const QHash<QString, QByteArray>& componentPreferenceProperties();

Q_SIGNALS:
    void monitorIsAccessoryAppChanged();
    void regularAppModeChanged();

private:
    // The value as the property's own type (its kind already checked), or nothing when it has
    // no such form.
    std::optional<QVariant> propertyValue(const QByteArray& property, const QVariant& value) const;

    void finishTermination(int status);
    void publishVendor();
    void observeSwitchboardRequests();
    void removeObsoleteDefaults();

    Subsystems m_subsystems;
    std::unique_ptr<ActivityWindow> m_activityWindow;
    std::unique_ptr<KSConnectionServiceSingleton> m_monitorVendor;
    std::unique_ptr<ImpermanentValues> m_impermanentValues;
    std::unique_ptr<ThemeChangeObserver> m_themeObserver;
    Clock m_clock;
    QString m_previouslyActiveApplication;
    QDateTime m_regularAppPolicyChangeDate;
    quint64 m_statusImageState = 0;
    bool m_terminateCleanly = false;
    bool m_terminationPending = false;
};
