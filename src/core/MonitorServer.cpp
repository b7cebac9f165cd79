#include "core/MonitorServer.h"

#include "KSComponentInstallingAdaptor.h"
#include "KSComponentPreferencingAdaptor.h"
#include "KSComponentServingAdaptor.h"
#include "StromMonitoringAdaptor.h"
#include "core/MonitorApplicationDelegate.h"
#include "core/MonitorListenerProviderAdaptor.h"
#include "core/WorkerPool.h"
#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "foundation/MainQueue.h"
#include "logging/Logger.h"
#include "messaging/SerializableDictionaryAdditions.h"
#include "tracking/CommandListener.h"
#include "tracking/CommandListenerService.h"

namespace {
void logUndecodable(const char* what, const KSException& failure)
{
    const LogLine line =
        Logger::log(4, QStringLiteral("undecodable %1 from a peer").arg(QString::fromLatin1(what)));
    Logger::log(7, line, failure);
}

QVariant decodeOrNothing(const QByteArray& data, const char* what)
{
    if (data.isEmpty()) {
        return {};
    }
    try {
        return KeyedArchive::unarchivedObject(data, KeyedArchive::propertyListClasses());
    } catch (const KSException& failure) {
        logUndecodable(what, failure);
        return {};
    }
}
} // namespace

MonitorServer::MonitorServer(MonitorApplicationDelegate* delegate)
    : m_delegate(delegate)
{
    setAnswersBarrierOnMainThread(true);
    new StromMonitoringAdaptor(this);
    new KSComponentInstallingAdaptor(this);
    new KSComponentPreferencingAdaptor(this);
    new KSComponentServingAdaptor(this);
    new MonitorListenerProviderAdaptor(this);
}

bool MonitorServer::queryCanMonitorCommandName(const QString& name)
{
    return MonitorApplicationDelegate::canMonitorCommandName(name);
}

void MonitorServer::orderMonitorWindowFront()
{
    MainQueue::dispatchMainAsync([this] { m_delegate->orderMonitorWindowFront(); });
}

void MonitorServer::orderMonitorWindowFrontIfVisible()
{
    MainQueue::dispatchMainAsync([this] { m_delegate->orderMonitorWindowFrontIfVisible(); });
}

void MonitorServer::orderStatusWindowFront()
{
    MainQueue::dispatchMainAsync([this] { m_delegate->orderStatusWindowFront(); });
}

bool MonitorServer::queryStatusWindowHasStatus()
{
    return m_delegate->statusWindowHasStatus();
}

void MonitorServer::refreshRecentRepositoryCache()
{
    MainQueue::dispatchMainAsync([this] { m_delegate->refreshRecentRepositoryCache(); });
}

QByteArray MonitorServer::queryRecentlyCapturedRepositoriesWithReply()
{
    replyFromMainThread(
        [this] { return QVariantList{m_delegate->recentlyCapturedRepositories()}; });
    return {};
}

// Finding the archives that hold items reads the mount table and the disks: never on the
// main thread, where a thousand paths took tens of milliseconds.
QByteArray MonitorServer::queryRepositoriesForItems(const QByteArray& items)
{
    replyThrough([](std::function<void()> job) { WorkerPool::shared().start(std::move(job)); },
                 [this, items] { return QVariantList{m_delegate->repositoriesForItems(items)}; });
    return {};
}

void MonitorServer::setUserNotificationForType(int type, bool enabled)
{
    m_delegate->setUserNotificationForType(type, enabled);
}

bool MonitorServer::queryEnabledUserNotificationForType(int type)
{
    return m_delegate->enabledUserNotificationForType(type);
}

QString MonitorServer::queryComponentVersionWithReply()
{
    return MonitorApplicationDelegate::kComponentVersion;
}

uint MonitorServer::queryBuildNumberWithReply()
{
    return MonitorApplicationDelegate::kBuildNumber;
}

QByteArray MonitorServer::queryComponentPreferenceForKey(const QString& key)
{
    const QVariant value = m_delegate->componentPreferenceForKey(key);
    return value.isValid() ? KeyedArchive::archivedData(value) : QByteArray();
}

bool MonitorServer::setComponentPreferenceValue(const QByteArray& data, const QString& key)
{
    const QVariant value = decodeOrNothing(data, "preference value");
    // Empty data removes the setting; data that is not a value must not.
    if (!data.isEmpty() && !value.isValid()) {
        return false;
    }
    if (!MonitorApplicationDelegate::componentPreferenceProperties().contains(key)) {
        return m_delegate->setComponentPreferenceValue(value, key);
    }
    // A setting of the monitor's own: set where its side effects and observers live.
    replyFromMainThread([this, value, key] {
        return QVariantList{m_delegate->setComponentPreferenceValue(value, key)};
    });
    return false;
}

void MonitorServer::queryListenerForCommandIdentifier(const QString& identifier,
                                                      const QByteArray& info)
{
    QVariantMap details;
    try {
        details = SerializableDictionaryAdditions::dictionaryFromArchive(info);
    } catch (const KSException& failure) {
        logUndecodable("command info", failure);
    }
    replyFromMainThread([identifier, details] {
        const auto listener = CommandListenerService::sharedService().listenerForCommandIdentifier(
            identifier, details);
        if (!listener) {
            return QVariantList{QVariant::fromValue(Endpoint()), 0U};
        }
        return QVariantList{QVariant::fromValue(listener->endpoint()), listener->roles()};
    });
}
