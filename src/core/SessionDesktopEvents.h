#pragma once

#include "core/DesktopEvents.h"

#include <QString>
#include <QVariantMap>
#include <functional>
#include <memory>

class ApplicationWatcher;
class DockBadge;
class MonitorDefaults;
class MonitorUserNotifier;
class MountTableWatcher;
class RepositoryStatusEvents;
class TaskbarPresence;
class UserNotificationCenter;

// The monitor as a citizen of the desktop session: it relays volume and application events to
// the other processes, keeps the dock badge and the taskbar presence, and speaks to the user
// through notifications. Main thread only.
class SessionDesktopEvents final : public DesktopEvents
{
public:
    using Post =
        std::function<void(const QString& name, const QString& source, const QVariantMap& info)>;

    struct Services
    {
        std::unique_ptr<MountTableWatcher> volumes;
        std::unique_ptr<ApplicationWatcher> applications;
        std::unique_ptr<DockBadge> dockBadge;
        std::unique_ptr<TaskbarPresence> taskbar;
        std::unique_ptr<UserNotificationCenter> notifications;
        // Posts on the switchboard; the process's hub when empty.
        Post post;
    };
    // What lies beyond the desktop: the capture history, the update watch and the delegate.
    // Any may be empty.
    struct Hooks
    {
        std::function<void(const QVariantMap& volumeInfo)> updateHistoryNotification;
        std::function<void(bool running)> setClientAppRunning;
        std::function<void()> orderMonitorWindowFront;
        // A click on a notification about an archive's status.
        std::function<void()> orderStatusWindowFront;
        // Every switch of the activation policy; the previously active application only with a
        // switch to regular.
        std::function<void(bool regular, const QString& previouslyActiveApplication)>
            noteActivationPolicyChange;
    };

    static inline const QString kDevicePathKey = QStringLiteral("NSDevicePath");
    static inline const QString kClientIdentifier = QStringLiteral("com.kestrom.client");

    SessionDesktopEvents(MonitorDefaults& defaults, Services services, Hooks hooks);
    ~SessionDesktopEvents() override;

    MonitorUserNotifier& userNotifier() const { return *m_notifier; }

    void observeVolumes() override;
    void observeApplications() override;
    void beginMonitoringStatusChangeEvents() override;
    void updateDockMode() override;
    void setDockActivityPaneCount(quint64 count) override;
    void refreshRunningApplications() override;
    void setLocalNotificationType(int type, bool enabled) override;
    bool deliversLocalNotificationType(int type) const override;

    void volumeMountNotification(const QVariantMap& userInfo);
    void volumeUnmountNotification(const QVariantMap& userInfo);
    void appLaunchedNotification(const QString& identifier);
    void appTerminatedNotification(const QString& identifier);
    void updateDockBadge();
    quint64 dockBadgeActivityCount() const { return m_dockBadgeActivityCount; }

private:
    void post(const QString& name, const QString& source, const QVariantMap& info) const;
    void postApplicationEvent(const QString& name, const QString& identifier, bool running);

    MonitorDefaults& m_defaults;
    Services m_services;
    Hooks m_hooks;
    std::unique_ptr<MonitorUserNotifier> m_notifier;
    std::unique_ptr<RepositoryStatusEvents> m_statusEvents;
    quint64 m_dockBadgeActivityCount = 0;
};
