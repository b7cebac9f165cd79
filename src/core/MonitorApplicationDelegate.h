#pragma once

#include "core/ActivityWindow.h"
#include "core/ArchiveStatusWindow.h"
#include "core/CommandRequests.h"
#include "core/DesktopEvents.h"
#include "core/QuitReasonSource.h"
#include "core/RecentArchives.h"
#include "core/StatusItem.h"
#include "core/UpdateController.h"

#include <QObject>
#include <QSet>
#include <QVariant>
#include <memory>

class ActivityProgressManager;
class CommandListener;
class KSConnectionServiceSingleton;

// The one object that ties the monitor together: it starts the subsystems in their fixed
// order, serves the monitoring interface, makes a progress manager for every command that
// reports, and decides how a quit ends. Main thread only, unless a method says otherwise.
class MonitorApplicationDelegate : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool monitorIsAccessoryApp READ monitorIsAccessoryApp WRITE setMonitorIsAccessoryApp)
    Q_PROPERTY(int regularAppMode READ regularAppMode WRITE setRegularAppMode)
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
        std::unique_ptr<StatusItem> statusItem = std::make_unique<StatusItem>();
        std::unique_ptr<ArchiveStatusWindow> statusWindow = std::make_unique<ArchiveStatusWindow>();
        std::unique_ptr<DesktopEvents> desktopEvents = std::make_unique<DesktopEvents>();
        std::unique_ptr<RecentArchives> recentArchives = std::make_unique<RecentArchives>();
        std::unique_ptr<CommandRequests> commandRequests = std::make_unique<CommandRequests>();
        std::unique_ptr<QuitReasonSource> quitReasons = std::make_unique<QuitReasonSource>();
    };

    explicit MonitorApplicationDelegate(Subsystems subsystems);
    ~MonitorApplicationDelegate() override;

    static MonitorApplicationDelegate* sharedDelegate();
    // Registers the defaults; runs once, before any instance.
    static void initializeClass();

    void applicationDidFinishLaunching();
    // The exit status when the quit goes ahead now; none when it waits (terminate later).
    std::optional<int> applicationShouldTerminate();
    void applicationWillTerminate();
    bool terminateCleanly() const { return m_terminateCleanly; }

    static bool canMonitorCommandName(const QString& name);
    std::shared_ptr<ActivityProgressManager>
    monitorRunningCommandWithIdentifier(const QString& identifier, const QVariantMap& info);

    void orderMonitorWindowFront();
    void orderMonitorWindowFrontIfVisible();
    void orderStatusWindowFront();
    bool statusWindowHasStatus() const;
    void refreshRecentRepositoryCache();
    QByteArray recentlyCapturedRepositories() const;
    QByteArray repositoriesForItems(const QByteArray& items) const;
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

private:
    void publishVendor();
    void observeSwitchboardRequests();
    void removeObsoleteDefaults();

    Subsystems m_subsystems;
    std::unique_ptr<ActivityWindow> m_activityWindow;
    std::unique_ptr<KSConnectionServiceSingleton> m_monitorVendor;
    std::unique_ptr<UpdateController> m_updateController;
    quint64 m_statusImageState = 0;
    bool m_terminateCleanly = false;
};
