#include "core/MonitorDelegateScheduler.h"

#include "foundation/KeyedArchive.h"
#include "foundation/MainQueue.h"
#include "foundation/NotificationCenter.h"
#include "foundation/RelativeDate.h"
#include "logging/Logger.h"
#include "messaging/KSConnection.h"
#include "messaging/KSSwitchboardConnection.h"
#include "messaging/MessagingThread.h"
#include "messaging/RemoteProxy.h"

#include <QDeadlineTimer>
#include <QPointer>
#include <QTimer>
#include <QWaitCondition>
#include <cmath>
#include <stdexcept>

namespace {
const QString kInterface = QStringLiteral("com.kestrom.StromScheduling");
const QString kEventAgentSource = QStringLiteral("EventAgent");

// One question's answer, filled on the messaging thread and read by the asking thread.
struct Answer
{
    QMutex mutex;
    QWaitCondition finished;
    bool done = false;
    std::optional<QDBusMessage> reply;
    QString error;
};
} // namespace

MonitorDelegateScheduler::MonitorDelegateScheduler(Hooks hooks, Clock clock, int queryTimeoutMs)
    : m_hooks(std::move(hooks))
    , m_clock(std::move(clock))
    , m_queryTimeoutMs(queryTimeoutMs)
{
    if (!m_hooks.showStatusItemStates || !m_hooks.refreshRunningApplications ||
        !m_hooks.runHoldDialog || !m_clock) {
        throw std::invalid_argument("the scheduler client needs every one of its hooks");
    }
}

MonitorDelegateScheduler::~MonitorDelegateScheduler()
{
    if (m_observing) {
        const auto switchboard = KSConnection::switchboardConnection();
        switchboard->removePublishedObserver(kProcessObserver, kSchedulerName);
        switchboard->removeObserver(kHoldObserver);
    }
}

void MonitorDelegateScheduler::initializeScheduler()
{
    m_observing = true;
    const auto switchboard = KSConnection::switchboardConnection();
    const QPointer<MonitorDelegateScheduler> self(this);
    switchboard->addObserverWhenName(
        kProcessObserver, kSchedulerName,
        [self](const Endpoint& endpoint) {
            MainQueue::dispatchMainAsync([self, endpoint] {
                if (self) {
                    self->schedulerWasPublished(endpoint);
                }
            });
        },
        [self] {
            MainQueue::dispatchMainAsync([self] {
                if (self) {
                    self->schedulerWasRedacted();
                }
            });
        });
    // Runs on the messaging thread: it only keeps the date, and shows it from the main thread.
    switchboard->addObserver(
        kHoldObserver, kHoldDateDidChange, QString(),
        [self](const QString&, const QVariantMap& info) {
            if (!self) {
                return;
            }
            self->setHoldDate(self->saneHoldDate(info.value(QStringLiteral("hold")),
                                                 QStringLiteral("the hold notice")));
            MainQueue::dispatchMainAsync([self] {
                if (self) {
                    self->m_hooks.showStatusItemStates(self->holdDate().has_value(),
                                                       kHeldStatusItemState);
                }
            });
        });
}

void MonitorDelegateScheduler::schedulerWasPublished(const Endpoint& endpoint)
{
    m_endpoint = endpoint;
    KSConnection::switchboardConnection()->postNotification(
        QStringLiteral("DiskEventsAgentDidStart"), kEventAgentSource, {});
    QTimer::singleShot(1000, this, [this] { m_hooks.refreshRunningApplications(); });
    const std::optional<double> holdTime = queryHoldTime();
    setHoldDate(holdTime ? saneHoldDate(*holdTime, QStringLiteral("queryHoldTime")) : std::nullopt);
    m_hooks.showStatusItemStates(holdDate().has_value(), kHeldStatusItemState);
    NotificationCenter::defaultCenter().post(kDidConnect, this);
}

void MonitorDelegateScheduler::schedulerWasRedacted()
{
    NotificationCenter::defaultCenter().post(kDidDisconnect, this);
    m_endpoint.reset();
}

bool MonitorDelegateScheduler::connected() const
{
    return m_endpoint.has_value();
}

std::optional<QDateTime> MonitorDelegateScheduler::holdDate() const
{
    QMutexLocker locker(&m_holdLock);
    return m_holdDate;
}

void MonitorDelegateScheduler::setHoldDate(std::optional<QDateTime> date)
{
    QMutexLocker locker(&m_holdLock);
    m_holdDate = std::move(date);
}

// Only a date in the future, and not absurdly far, holds anything.
std::optional<QDateTime> MonitorDelegateScheduler::saneHoldDate(const QVariant& value,
                                                                const QString& where)
{
    if (!value.isValid()) {
        return std::nullopt;
    }
    QDateTime date;
    if (value.typeId() == QMetaType::QDateTime) {
        date = value.toDateTime();
    } else if (value.typeId() == QMetaType::Double) {
        date = RelativeDate::dateWithSecondsSinceReferenceDate(value.toDouble());
    } else {
        logOnce(where, QStringLiteral("a hold that is no date"));
        return std::nullopt;
    }
    const QDateTime now = m_clock();
    if (!date.isValid() || date <= now) {
        return std::nullopt;
    }
    if (date > now.addDays(kLongestHoldDays)) {
        logOnce(where, QStringLiteral("a hold years ahead"));
        return std::nullopt;
    }
    return date;
}

std::optional<QDBusMessage> MonitorDelegateScheduler::ask(const QString& member)
{
    if (!m_endpoint) {
        return std::nullopt;
    }
    const auto answer = std::make_shared<Answer>();
    const QDBusMessage call = QDBusMessage::createMethodCall(
        m_endpoint->service(), m_endpoint->path(), kInterface, member);
    RemoteProxy::callAsync(
        MessagingThread::instance().connection(), call,
        [answer](const QDBusMessage& reply) {
            QMutexLocker locker(&answer->mutex);
            answer->reply = reply;
            answer->done = true;
            answer->finished.wakeAll();
        },
        [answer](const QDBusError& error) {
            QMutexLocker locker(&answer->mutex);
            answer->error = error.name() + QStringLiteral(": ") + error.message();
            answer->done = true;
            answer->finished.wakeAll();
        },
        // The bus gives up after this thread does, so that silence always ends at the deadline
        // below and is logged in one wording, not sometimes as the bus's time-out.
        2 * m_queryTimeoutMs);
    QMutexLocker locker(&answer->mutex);
    const QDeadlineTimer deadline(m_queryTimeoutMs);
    while (!answer->done && answer->finished.wait(&answer->mutex, deadline)) {
    }
    if (!answer->done) {
        logOnce(member, QStringLiteral("no answer within %1 ms").arg(m_queryTimeoutMs));
        return std::nullopt;
    }
    if (!answer->reply) {
        logOnce(member, answer->error);
        return std::nullopt;
    }
    return answer->reply;
}

bool MonitorDelegateScheduler::tell(const QString& member, const QVariantList& arguments)
{
    if (!m_endpoint) {
        return false;
    }
    QDBusMessage message = QDBusMessage::createMethodCall(m_endpoint->service(), m_endpoint->path(),
                                                          kInterface, member);
    message.setArguments(arguments);
    message.setAutoStartService(false);
    return MessagingThread::instance().connection().send(message);
}

// The answer's keyed archive, read and of the type asked for; anything else is logged once.
std::optional<QVariant> MonitorDelegateScheduler::archivedReply(const QString& member,
                                                                QMetaType::Type type,
                                                                const QString& typeName)
{
    const std::optional<QDBusMessage> reply = ask(member);
    if (!reply) {
        return std::nullopt;
    }
    const QVariant first = reply->arguments().value(0);
    if (first.typeId() != QMetaType::QByteArray) {
        logOnce(member, QStringLiteral("an answer that is no keyed archive"));
        return std::nullopt;
    }
    const QVariant value =
        KeyedArchive::unarchivedObject(first.toByteArray(), KeyedArchive::propertyListClasses());
    if (!value.isValid()) {
        logOnce(member, QStringLiteral("a keyed archive that cannot be read"));
        return std::nullopt;
    }
    if (value.typeId() != type) {
        logOnce(member, QStringLiteral("an answer that is no %1").arg(typeName));
        return std::nullopt;
    }
    return value;
}

std::optional<QVariantMap> MonitorDelegateScheduler::queryNextScheduledActionInfo()
{
    const std::optional<QVariant> info =
        archivedReply(QStringLiteral("queryNextScheduledActionInfoWithReply"),
                      QMetaType::QVariantMap, QStringLiteral("dictionary"));
    return info ? std::optional(info->toMap()) : std::nullopt;
}

std::optional<QVariantList> MonitorDelegateScheduler::queryActionsInfo()
{
    const QString member = QStringLiteral("queryActionsInfoWithReply");
    const std::optional<QVariant> actions =
        archivedReply(member, QMetaType::QVariantList, QStringLiteral("array"));
    if (!actions) {
        return std::nullopt;
    }
    QVariantList dictionaries;
    for (const QVariant& action : actions->toList()) {
        if (action.typeId() == QMetaType::QVariantMap) {
            dictionaries.append(action);
        } else {
            logOnce(member, QStringLiteral("an action that is no dictionary"));
        }
    }
    return dictionaries;
}

std::optional<double> MonitorDelegateScheduler::queryHoldTime()
{
    const QString member = QStringLiteral("queryHoldTimeWithReply");
    const std::optional<QDBusMessage> reply = ask(member);
    if (!reply) {
        return std::nullopt;
    }
    const QVariant value = reply->arguments().value(0);
    if (value.typeId() != QMetaType::Double) {
        logOnce(member, QStringLiteral("an answer that is no number"));
        return std::nullopt;
    }
    const double seconds = value.toDouble();
    // NaN, a time before the reference date or years ahead: no hold.
    if (!std::isfinite(seconds) || seconds < 0) {
        logOnce(member, QStringLiteral("a hold time that is no time"));
        return 0.0;
    }
    return seconds;
}

void MonitorDelegateScheduler::setHoldTime(double seconds)
{
    if (!tell(QStringLiteral("setHoldTime"), {seconds})) {
        Logger::log(3, QStringLiteral("Schedules not changed: the scheduler is not running"));
    }
}

bool MonitorDelegateScheduler::setActionToExecuteAt(const QString& actionID, double seconds)
{
    return tell(QStringLiteral("setAction"), {actionID, seconds});
}

void MonitorDelegateScheduler::holdSchedules(int halfHours)
{
    if (halfHours <= 0) {
        m_hooks.runHoldDialog();
        return;
    }
    // Half hours counted from the current whole minute.
    const double now = RelativeDate::secondsSinceReferenceDate(m_clock());
    setHoldTime(std::round(now / 60.0) * 60.0 + halfHours * 1800.0);
}

void MonitorDelegateScheduler::resumeSchedules()
{
    setHoldTime(0);
}

void MonitorDelegateScheduler::logOnce(const QString& what, const QString& problem)
{
    {
        QMutexLocker locker(&m_loggedLock);
        if (!m_logged.contains(what + problem)) {
            m_logged.insert(what + problem);
        } else {
            return;
        }
    }
    Logger::log(3, QStringLiteral("The scheduler's %1: %2").arg(what, problem));
}
