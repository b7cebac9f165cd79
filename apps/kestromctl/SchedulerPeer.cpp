#include "SchedulerPeer.h"

#include "KSComponentInstallingAdaptor.h"
#include "KSComponentPreferencingAdaptor.h"
#include "KSComponentServingAdaptor.h"
#include "StromSchedulingAdaptor.h"
#include "foundation/KeyedArchive.h"
#include "foundation/MainQueue.h"
#include "foundation/RelativeDate.h"
#include "messaging/KSSwitchboardConnection.h"

#include <cmath>
#include <csignal>
#include <cstdio>
#include <limits>
#include <unistd.h>
#include <utility>

namespace {
const QString kSource = QStringLiteral("Scheduler");
// Spelled so: the monitor listens for exactly this name.
const QString kHoldDateDidChange = QStringLiteral("ScheuleHoldDateDidChange");
const QString kActionScheduleDidChange = QStringLiteral("ActionScheduleDidChange");
const QString kTime = QStringLiteral("time");
const std::pair<const char*, SchedulerPeer::Misbehaviour> kMisbehaviours[] = {
    {"wrong-types", SchedulerPeer::Misbehaviour::WrongTypes},
    {"silent", SchedulerPeer::Misbehaviour::Silent},
    {"die", SchedulerPeer::Misbehaviour::Die},
};

void say(const QString& line)
{
    std::fprintf(stdout, "%s\n", line.toLocal8Bit().constData());
    std::fflush(stdout);
}

QString seconds(double value)
{
    return QString::number(value, 'f', 0);
}

// The switchboard connection is the main thread's; a request only queues its broadcast there.
void broadcast(const QString& name, const QVariantMap& info)
{
    MainQueue::dispatchMainAsync([name, info] {
        KSConnection::switchboardConnection()->postNotification(name, kSource, info);
    });
}
} // namespace

SchedulerPeer::SchedulerPeer(QVariantList actions, double holdSeconds, Misbehaviour misbehaviour)
    : m_misbehaviour(misbehaviour)
    , m_actions(std::move(actions))
    , m_holdSeconds(holdSeconds)
{
    new StromSchedulingAdaptor(this);
    new KSComponentServingAdaptor(this);
    new KSComponentInstallingAdaptor(this);
    new KSComponentPreferencingAdaptor(this);
}

QStringList SchedulerPeer::misbehaviours()
{
    QStringList names;
    for (const auto& [name, misbehaviour] : kMisbehaviours) {
        names.append(QString::fromLatin1(name));
    }
    return names;
}

std::optional<SchedulerPeer::Misbehaviour> SchedulerPeer::misbehaviourNamed(const QString& name)
{
    for (const auto& [known, misbehaviour] : kMisbehaviours) {
        if (name == QLatin1String(known)) {
            return misbehaviour;
        }
    }
    return std::nullopt;
}

bool SchedulerPeer::answers(const QString& line)
{
    say(line);
    if (m_misbehaviour == Misbehaviour::Die) {
        ::kill(::getpid(), SIGKILL);
    }
    if (m_misbehaviour == Misbehaviour::Silent) {
        // Taken over and then forgotten: the caller waits for a reply that never comes.
        setDelayedReply(true);
        return false;
    }
    return true;
}

QByteArray SchedulerPeer::wrongArchive() const
{
    return KeyedArchive::archivedData(QStringLiteral("not what was asked for"));
}

QByteArray SchedulerPeer::queryVolatileInfoWithReply()
{
    if (!answers(QStringLiteral("queryVolatileInfo"))) {
        return {};
    }
    return m_misbehaviour == Misbehaviour::WrongTypes ? wrongArchive()
                                                      : KeyedArchive::archivedData(QVariantMap());
}

QByteArray SchedulerPeer::queryRunSummariesWithReply()
{
    if (!answers(QStringLiteral("queryRunSummaries"))) {
        return {};
    }
    // Nothing runs here, so there is nothing to sum up.
    return m_misbehaviour == Misbehaviour::WrongTypes ? wrongArchive()
                                                      : KeyedArchive::archivedData(QVariantMap());
}

QByteArray SchedulerPeer::queryNextScheduledActionInfoWithReply()
{
    if (!answers(QStringLiteral("queryNextScheduledActionInfo"))) {
        return {};
    }
    if (m_misbehaviour == Misbehaviour::WrongTypes) {
        return wrongArchive();
    }
    QMutexLocker locker(&m_mutex);
    QVariantMap next;
    for (const QVariant& value : std::as_const(m_actions)) {
        const QVariantMap action = value.toMap();
        const QDateTime time = action.value(kTime).toDateTime();
        if (time.isValid() && (next.isEmpty() || time < next.value(kTime).toDateTime())) {
            next = {{QStringLiteral("title"), action.value(QStringLiteral("title"))},
                    {kTime, time}};
        }
    }
    return KeyedArchive::archivedData(next);
}

QByteArray SchedulerPeer::queryActionsInfoWithReply()
{
    if (!answers(QStringLiteral("queryActionsInfo"))) {
        return {};
    }
    if (m_misbehaviour == Misbehaviour::WrongTypes) {
        return wrongArchive();
    }
    QMutexLocker locker(&m_mutex);
    return KeyedArchive::archivedData(m_actions);
}

double SchedulerPeer::queryHoldTimeWithReply()
{
    if (!answers(QStringLiteral("queryHoldTime"))) {
        return 0;
    }
    if (m_misbehaviour == Misbehaviour::WrongTypes) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    QMutexLocker locker(&m_mutex);
    return m_holdSeconds;
}

void SchedulerPeer::setHoldTime(double holdTime)
{
    say(QStringLiteral("setHoldTime %1").arg(seconds(holdTime)));
    const QDateTime until = RelativeDate::dateWithSecondsSinceReferenceDate(holdTime);
    const bool holds = holdTime > 0 && until.isValid();
    {
        QMutexLocker locker(&m_mutex);
        m_holdSeconds = holds ? holdTime : 0;
    }
    // Without a "hold" entry the notice releases the hold.
    broadcast(kHoldDateDidChange,
              holds ? QVariantMap{{QStringLiteral("hold"), until}} : QVariantMap());
}

void SchedulerPeer::sabotageScheduleTime(double time)
{
    say(QStringLiteral("sabotageScheduleTime %1").arg(seconds(time)));
}

void SchedulerPeer::setAction(const QString& actionIdentifier, double time)
{
    const QDateTime when = RelativeDate::dateWithSecondsSinceReferenceDate(time);
    bool known = false;
    {
        QMutexLocker locker(&m_mutex);
        for (QVariant& value : m_actions) {
            QVariantMap action = value.toMap();
            if (action.value(QStringLiteral("uuid")).toString() != actionIdentifier) {
                continue;
            }
            // A time of 0 takes the action off the schedule.
            if (time > 0 && when.isValid()) {
                action.insert(kTime, when);
            } else {
                action.remove(kTime);
            }
            value = action;
            known = true;
        }
    }
    say(QStringLiteral("setAction %1 %2%3")
            .arg(actionIdentifier, seconds(time),
                 known ? QString() : QStringLiteral(" (no such action)")));
    if (known) {
        broadcast(kActionScheduleDidChange, {{QStringLiteral("uuid"), actionIdentifier}});
    }
}

void SchedulerPeer::setActionSuspended(const QString& actionIdentifier, bool suspended)
{
    say(QStringLiteral("setActionSuspended %1 %2")
            .arg(actionIdentifier, suspended ? QStringLiteral("true") : QStringLiteral("false")));
}

void SchedulerPeer::quickCapture(const QByteArray& items, const QString& archive)
{
    say(QStringLiteral("quickCapture %1 (%2 bytes of items)").arg(archive).arg(items.size()));
}

int SchedulerPeer::launchMetadataService(const QString& service, const QString& commandName)
{
    say(QStringLiteral("launchMetadataService %1 %2").arg(service, commandName));
    return 0;
}

QString SchedulerPeer::queryComponentVersionWithReply()
{
    say(QStringLiteral("queryComponentVersion"));
    return kComponentVersion;
}

uint SchedulerPeer::queryBuildNumberWithReply()
{
    say(QStringLiteral("queryBuildNumber"));
    return 0;
}

void SchedulerPeer::didInstallComponent()
{
    say(QStringLiteral("didInstallComponent"));
}

void SchedulerPeer::willUninstallComponent()
{
    say(QStringLiteral("willUninstallComponent"));
}

QByteArray SchedulerPeer::queryComponentPreferenceForKey(const QString& key)
{
    say(QStringLiteral("queryComponentPreferenceForKey %1").arg(key));
    return {}; // nil
}

bool SchedulerPeer::setComponentPreferenceValue(const QByteArray&, const QString& key)
{
    say(QStringLiteral("setComponentPreferenceValue %1").arg(key));
    return false;
}
