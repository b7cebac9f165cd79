#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>
#include <functional>
#include <memory>

class KSSwitchboardConnection;
class MonitorDefaults;
class RepositoryStatus;

// Turns changes of an archive's status into desktop events: the monitor remembers, per archive
// UUID, the last event state it acted on ("KSMonitorRepositoryEventStates"), so an event fires
// once per change and not again after a restart.
class RepositoryStatusEvents
{
public:
    // How events leave the monitor; the composition root connects them to the switchboard and
    // the user notifications, tests to recorders. Any may be empty.
    struct Channels
    {
        std::function<void(const QString& name, const QString& source, const QVariantMap& info)>
            postNotification;
        std::function<void(int type, const QString& title, const QString& details,
                           const QString& identifier)>
            notifyUser;
        std::function<void(const QString& identifier)> unnotifyUser;
    };

    static inline const QString kStatusChangedNotification =
        QStringLiteral("RepositoryStatusChanged");
    static inline const QString kNeedsRepairTitle = QStringLiteral("Archive Needs Repair");
    static constexpr int kNeedsRepairNotificationType = 3;

    RepositoryStatusEvents(MonitorDefaults& defaults, Channels channels);
    // Stops observing, so that no notice reaches an object that is gone.
    ~RepositoryStatusEvents();
    RepositoryStatusEvents(const RepositoryStatusEvents&) = delete;
    RepositoryStatusEvents& operator=(const RepositoryStatusEvents&) = delete;

    // Observes "RepositoryStatusDidChange" on the switchboard (the notices are handled on the
    // main thread), then catches up with the known statuses. Main thread only.
    void beginMonitoringStatusChangeEvents(KSSwitchboardConnection& switchboard);
    // Fires what changed while the monitor was not watching, for every known archive, and
    // forgets the states of archives that have no status any more. Answers the UUIDs that fired.
    QStringList catchUpWithKnownStatuses();
    // Main thread only. Answers the keys that fired, none when nothing changed.
    QStringList didChangeStatusForRepository(const QString& uuid, const QString& mirrorPath);
    void fireStatusEvents(const QStringList& changes, RepositoryStatus& status);

private:
    MonitorDefaults& m_defaults;
    Channels m_channels;
    KSSwitchboardConnection* m_switchboard = nullptr;
    QString m_observerID;
    // Queued notices hold only a weak reference: one that arrives after this object has gone
    // is dropped on the main thread, where both the notice and the destruction run.
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};
