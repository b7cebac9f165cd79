#include "core/SessionDesktopEvents.h"

#include "core/MonitorUserNotifier.h"
#include "logging/Logger.h"
#include "messaging/KSConnection.h"
#include "messaging/KSSwitchboardConnection.h"
#include "messaging/SerializableDictionaryAdditions.h"
#include "platform/ApplicationWatcher.h"
#include "platform/DockBadge.h"
#include "platform/MountTableWatcher.h"
#include "platform/TaskbarPresence.h"
#include "platform/UserNotificationCenter.h"
#include "preferences/MonitorDefaults.h"
#include "status/RepositoryStatusEvents.h"
#include "tracking/ProgressServices.h"

namespace {
const QString kEventAgentSource = QStringLiteral("EventAgent");
const QString kMonitorSource = QStringLiteral("com.kestrom.monitor");
const QString kIdentifierKey = QStringLiteral("id");
} // namespace

SessionDesktopEvents::SessionDesktopEvents(MonitorDefaults& defaults, Services services,
                                           Hooks hooks)
    : m_defaults(defaults)
    , m_services(std::move(services))
    , m_hooks(std::move(hooks))
    , m_notifier(std::make_unique<MonitorUserNotifier>(defaults, *m_services.notifications))
{
    // The user clicked a notification because something happened to a command or an archive:
    // show them where.
    m_services.notifications->setActivationHandler(
        [this](const UserNotificationCenter::Notification& clicked) {
            const bool aboutStatus =
                clicked.userInfo.value(MonitorUserNotifier::kTypeKey).toInt() ==
                RepositoryStatusEvents::kNeedsRepairNotificationType;
            const auto& order =
                aboutStatus ? m_hooks.orderStatusWindowFront : m_hooks.orderMonitorWindowFront;
            if (order) {
                order();
            }
        });
}

SessionDesktopEvents::~SessionDesktopEvents()
{
    if (&ProgressServices::userNotifier() == m_notifier.get()) {
        ProgressServices::setUserNotifier(nullptr);
    }
}

void SessionDesktopEvents::observeVolumes()
{
    m_services.volumes->startWatching(
        [this](const QString& point) {
            volumeMountNotification({{kDevicePathKey, point}});
        },
        [this](const QString& point) {
            volumeUnmountNotification({{kDevicePathKey, point}});
        });
}

void SessionDesktopEvents::volumeMountNotification(const QVariantMap& userInfo)
{
    Logger::log(9, QStringLiteral("posting volume %1 mount notification")
                       .arg(userInfo.value(kDevicePathKey).toString()));
    post(QStringLiteral("DiskEventVolumeDidMount"), kEventAgentSource,
         SerializableDictionaryAdditions::dictionaryStringifyingNonSerializableObjects(userInfo));
    if (m_hooks.updateHistoryNotification) {
        m_hooks.updateHistoryNotification(userInfo);
    }
}

void SessionDesktopEvents::volumeUnmountNotification(const QVariantMap& userInfo)
{
    Logger::log(9, QStringLiteral("posting volume %1 unmount notification")
                       .arg(userInfo.value(kDevicePathKey).toString()));
    post(QStringLiteral("DiskEventVolumeWasUnmounted"), kEventAgentSource,
         SerializableDictionaryAdditions::dictionaryStringifyingNonSerializableObjects(userInfo));
}

void SessionDesktopEvents::observeApplications()
{
    m_services.applications->startWatching(
        [this](const QString& identifier) { appLaunchedNotification(identifier); },
        [this](const QString& identifier) { appTerminatedNotification(identifier); });
}

void SessionDesktopEvents::appLaunchedNotification(const QString& identifier)
{
    postApplicationEvent(QStringLiteral("ApplicationDidLaunch"), identifier, true);
}

void SessionDesktopEvents::appTerminatedNotification(const QString& identifier)
{
    postApplicationEvent(QStringLiteral("ApplicationDidTerminate"), identifier, false);
}

void SessionDesktopEvents::postApplicationEvent(const QString& name, const QString& identifier,
                                                bool running)
{
    if (identifier.isEmpty()) {
        return;
    }
    post(name, kMonitorSource, {{kIdentifierKey, identifier}});
    if (identifier == kClientIdentifier && m_hooks.setClientAppRunning) {
        m_hooks.setClientAppRunning(running);
    }
}

void SessionDesktopEvents::refreshRunningApplications()
{
    const QStringList running = m_services.applications->runningApplications();
    post(QStringLiteral("OpenApplicationsNotification"), kMonitorSource,
         {{kIdentifierKey, running}});
    if (m_hooks.setClientAppRunning) {
        m_hooks.setClientAppRunning(running.contains(kClientIdentifier));
    }
}

void SessionDesktopEvents::beginMonitoringStatusChangeEvents()
{
    if (m_statusEvents) {
        return;
    }
    // Archive events reach the user through the same notifier and switchboard as commands'.
    RepositoryStatusEvents::Channels channels;
    channels.postNotification = [this](const QString& name, const QString& source,
                                       const QVariantMap& info) {
        post(name, source, info);
    };
    channels.notifyUser = [this](int type, const QString& title, const QString& details,
                                 const QString& identifier) {
        m_notifier->notifyUser(type, title, details, identifier, {});
    };
    channels.unnotifyUser = [this](const QString& identifier) {
        m_notifier->unnotifyUserWithIdentifier(identifier);
    };
    m_statusEvents = std::make_unique<RepositoryStatusEvents>(m_defaults, std::move(channels));
    m_statusEvents->beginMonitoringStatusChangeEvents(*KSConnection::switchboardConnection());
}

void SessionDesktopEvents::setDockActivityPaneCount(quint64 count)
{
    if (count == m_dockBadgeActivityCount) {
        return;
    }
    m_dockBadgeActivityCount = count;
    updateDockMode();
    updateDockBadge();
}

void SessionDesktopEvents::updateDockBadge()
{
    m_services.dockBadge->setBadgeCount(m_dockBadgeActivityCount);
}

void SessionDesktopEvents::updateDockMode()
{
    using Policy = TaskbarPresence::Policy;
    const bool regular = !m_defaults.monitorAccessoryApp() &&
                         (m_defaults.monitorRegularAppMode() != 0 || m_dockBadgeActivityCount != 0);
    const Policy policy = regular ? Policy::Regular : Policy::Accessory;
    if (m_services.taskbar->activationPolicy() == policy) {
        return;
    }
    // Which application had the focus is not something a Linux desktop tells its clients, so
    // the echo of the switch is recognised by its time alone and nobody is activated back.
    if (m_hooks.noteActivationPolicyChange) {
        m_hooks.noteActivationPolicyChange(policy == Policy::Regular, QString());
    }
    m_services.taskbar->setActivationPolicy(policy);
}

void SessionDesktopEvents::setLocalNotificationType(int type, bool enabled)
{
    m_notifier->setLocalNotificationType(type, enabled);
}

bool SessionDesktopEvents::deliversLocalNotificationType(int type) const
{
    return m_notifier->deliversLocalNotificationType(type);
}

void SessionDesktopEvents::post(const QString& name, const QString& source,
                                const QVariantMap& info) const
{
    if (m_services.post) {
        m_services.post(name, source, info);
    } else {
        KSConnection::switchboardConnection()->postNotification(name, source, info);
    }
}
