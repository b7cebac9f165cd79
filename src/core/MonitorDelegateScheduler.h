#pragma once

#include "core/SchedulerClient.h"
#include "messaging/Endpoint.h"
#include "statusmenu/ScheduleControl.h"

#include <QDBusMessage>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <functional>
#include <optional>

// The monitor's side of the per-user scheduler: it follows the scheduler's publication on the
// switchboard, mirrors its hold date into the status item, and sends the hold, resume and
// run-now requests. The monitor schedules nothing itself. A question to the scheduler waits a
// bounded time, so that a scheduler that never answers leaves the menu usable; wrong answers
// are logged once each. Main thread only, unless a method says otherwise.
class MonitorDelegateScheduler final : public QObject,
                                       public SchedulerClient,
                                       public ScheduleControl
{
    Q_OBJECT

public:
    struct Hooks
    {
        std::function<void(bool show, quint64 states)> showStatusItemStates;
        std::function<void()> refreshRunningApplications;
        // Asks the user until when to hold every schedule.
        std::function<void()> runHoldDialog;
    };
    using Clock = std::function<QDateTime()>;

    static inline const QString kSchedulerName = QStringLiteral("com.kestrom.scheduler");
    static inline const QString kProcessObserver = QStringLiteral("Monitor.process");
    static inline const QString kHoldObserver = QStringLiteral("Monitor.hold");
    // The scheduler posts it spelled so.
    static inline const QString kHoldDateDidChange = QStringLiteral("ScheuleHoldDateDidChange");
    static inline const QString kDidConnect = QStringLiteral("SchedulerDidConnect");
    static inline const QString kDidDisconnect = QStringLiteral("SchedulerDidDisconnect");
    static constexpr quint64 kHeldStatusItemState = 2;
    // A hold further ahead than this is a scheduler's mistake, not a user's wish.
    static constexpr qint64 kLongestHoldDays = 3650;

    // Every hook must be set; throws std::invalid_argument otherwise.
    MonitorDelegateScheduler(Hooks hooks, Clock clock, int queryTimeoutMs);
    ~MonitorDelegateScheduler() override;

    // SchedulerClient
    void initializeScheduler() override;
    std::optional<QVariantMap> queryNextScheduledActionInfo() override;
    bool setActionToExecuteAt(const QString& actionID, double seconds) override;
    bool connected() const override;
    std::optional<QDateTime> holdDate() const override;
    std::optional<QVariantList> queryActionsInfo() override;
    void holdSchedules(int halfHours) override;
    void resumeSchedules() override;

    // ScheduleControl
    std::optional<double> queryHoldTime() override;
    void setHoldTime(double seconds) override;

    void schedulerWasPublished(const Endpoint& endpoint);
    void schedulerWasRedacted();

private:
    // The reply, or none (logged once per kind) when there is no scheduler, no answer in
    // time or an error.
    std::optional<QDBusMessage> ask(const QString& member);
    bool tell(const QString& member, const QVariantList& arguments);
    // The keyed archive of the reply's first value; none (logged once) when it is not one.
    std::optional<QVariant> archivedReply(const QString& member, QMetaType::Type type,
                                          const QString& typeName);
    // Any thread.
    void setHoldDate(std::optional<QDateTime> date);
    std::optional<QDateTime> saneHoldDate(const QVariant& value, const QString& where);
    void logOnce(const QString& what, const QString& problem);

    Hooks m_hooks;
    Clock m_clock;
    int m_queryTimeoutMs;
    std::optional<Endpoint> m_endpoint;
    mutable QMutex m_holdLock;
    std::optional<QDateTime> m_holdDate;
    QMutex m_loggedLock;
    QSet<QString> m_logged;
    bool m_observing = false;
};
