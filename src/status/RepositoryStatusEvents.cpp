#include "status/RepositoryStatusEvents.h"

#include "foundation/MainQueue.h"
#include "messaging/KSConnection.h"
#include "messaging/KSSwitchboardConnection.h"
#include "preferences/MonitorDefaults.h"
#include "status/RepositoryStatus.h"

RepositoryStatusEvents::RepositoryStatusEvents(MonitorDefaults& defaults, Channels channels)
    : m_defaults(defaults)
    , m_channels(std::move(channels))
{}

RepositoryStatusEvents::~RepositoryStatusEvents()
{
    if (m_switchboard) {
        m_switchboard->removeObserver(m_observerID);
    }
}

void RepositoryStatusEvents::beginMonitoringStatusChangeEvents(KSSwitchboardConnection& switchboard)
{
    if (m_switchboard) {
        return;
    }
    m_switchboard = &switchboard;
    m_observerID = KSSwitchboardConnection::nextAnonymousObserverID();
    switchboard.addObserver(m_observerID, RepositoryStatus::kDidChangeNotification,
                            RepositoryStatus::kNotificationSource,
                            [this](const QString& /*source*/, const QVariantMap& info) {
                                const QString uuid =
                                    info.value(QStringLiteral("StatusUUID")).toString();
                                const QString mirror =
                                    info.value(QStringLiteral("StatusMirror")).toString();
                                if (uuid.isEmpty() || mirror.isEmpty()) {
                                    return;
                                }
                                MainQueue::dispatchMainAsync(
                                    [this, alive = std::weak_ptr<bool>(m_alive), uuid, mirror] {
                                        if (alive.lock()) {
                                            didChangeStatusForRepository(uuid, mirror);
                                        }
                                    });
                            });
    catchUpWithKnownStatuses();
}

QStringList RepositoryStatusEvents::catchUpWithKnownStatuses()
{
    const QVariantMap stored = m_defaults.monitorRepositoryEventStates();
    QVariantMap current;
    QStringList fired;
    for (const auto& status : RepositoryStatus::all()) {
        const QString uuid = status->repositoryUUID();
        current.insert(uuid, status->eventState());
        const auto changes = status->eventChangesFromPreviousState(stored.value(uuid).toMap());
        if (changes && !changes->isEmpty()) {
            fireStatusEvents(*changes, *status);
            fired.append(uuid);
        }
    }
    if (current != stored) {
        m_defaults.setObject(current, MonitorDefaults::kMonitorRepositoryEventStates);
    }
    return fired;
}

QStringList RepositoryStatusEvents::didChangeStatusForRepository(const QString& uuid,
                                                                 const QString& mirrorPath)
{
    QVariantMap states = m_defaults.monitorRepositoryEventStates();
    const QVariantMap previous = states.value(uuid).toMap();
    const auto status = RepositoryStatus::statusFromMirrorPath(mirrorPath);
    if (!status) {
        return {};
    }
    const auto changes = status->eventChangesFromPreviousState(previous);
    if (!changes) {
        return {};
    }
    fireStatusEvents(*changes, *status);
    states.insert(uuid, status->eventState());
    m_defaults.setObject(states, MonitorDefaults::kMonitorRepositoryEventStates);
    return *changes;
}

void RepositoryStatusEvents::fireStatusEvents(const QStringList& changes, RepositoryStatus& status)
{
    const QVariantMap state = status.eventState();
    for (const QString& key : changes) {
        const QVariant value = state.value(key);
        if (m_channels.postNotification) {
            m_channels.postNotification(kStatusChangedNotification,
                                        KSConnection::kProductIdentifierPrefix +
                                            QStringLiteral(".monitor"),
                                        {{QStringLiteral("status"), key},
                                         {QStringLiteral("event.value"), value},
                                         {QStringLiteral("rep.path"), status.repositoryPath()},
                                         {QStringLiteral("rep.id"), status.repositoryUUID()}});
        }
        if (key != RepositoryStatus::kRepairEvent) {
            continue;
        }
        if (value.toBool()) {
            if (m_channels.notifyUser) {
                m_channels.notifyUser(kNeedsRepairNotificationType, kNeedsRepairTitle,
                                      status.displayName(), status.repositoryUUID());
            }
        } else if (m_channels.unnotifyUser) {
            m_channels.unnotifyUser(status.repositoryUUID());
        }
    }
}
