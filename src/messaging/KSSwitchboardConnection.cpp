#include "messaging/KSSwitchboardConnection.h"

#include "logging/Logger.h"
#include "messaging/InterfaceNames.h"
#include "messaging/SerializableDictionaryAdditions.h"
#include "messaging/SwitchboardNames.h"
#include "platform/DistributedNotificationCenter.h"

#include <QDBusArgument>
#include <QThreadPool>
#include <atomic>

namespace {
std::atomic<quint64> s_anonymousObservers{0};
} // namespace

KSSwitchboardConnection::KSSwitchboardConnection()
    : KSMachServiceConnection(SwitchboardNames::perUserServiceName(),
                              SwitchboardNames::kSwitchboardPath, 0,
                              QStringLiteral("StromSwitchboarding_private"))
    , m_subscriber(new SwitchboardSubscriber)
    , m_subscriberListener(m_subscriber, SwitchboardNames::kSubscriberPath)
{
    m_subscriberListener.resume();
}

KSSwitchboardConnection::~KSSwitchboardConnection() = default;

std::shared_ptr<KSSwitchboardConnection> KSConnection::switchboardConnection()
{
    static const std::shared_ptr<KSSwitchboardConnection> connection = [] {
        auto made = std::make_shared<KSSwitchboardConnection>();
        const std::weak_ptr<KSSwitchboardConnection> weak = made;
        DistributedNotificationCenter::defaultCenter().addObserver(
            SwitchboardNames::startedNotificationName(), QString(),
            [weak](const QString&, const QString& started) {
                // Reconnecting waits on the bus: not on the notification centre's thread.
                QThreadPool::globalInstance()->start([weak, started] {
                    if (const auto alive = weak.lock()) {
                        alive->switchboardDidStartNotification(started);
                    }
                });
            });
        return made;
    }();
    return connection;
}

QString KSSwitchboardConnection::nextAnonymousObserverID()
{
    return QStringLiteral(".anon.%1").arg(s_anonymousObservers.fetch_add(1) + 1);
}

std::vector<KSConnection::Candidate> KSSwitchboardConnection::makeConnections()
{
    return {makeConnectionTo(configuredServiceName(), options()),
            makeConnectionTo(SwitchboardNames::systemWideServiceName(),
                             options() | PlatformConnection::kPrivilegedOption)};
}

void KSSwitchboardConnection::setupProxy(const std::shared_ptr<RemoteProxy>& proxy)
{
    KSConnection::setupProxy(proxy);
    proxy->send(InterfaceNames::kSwitchboardingPrivate, QStringLiteral("setUser"),
                {QVariant::fromValue(SwitchboardNames::processUserID())});
    m_subscriber->reregisterObserversWithSwitchboard(*proxy);
}

// The subscriber is one object on the process's connection, reachable by every hub: a dropped
// hub must stop forwarding to it, or its observers would hear every notice twice once another
// hub has them too. Sent one way, so it never waits under the lock, and ahead of whatever this
// process says to the hub that next owns the same name.
void KSSwitchboardConnection::disconnectInternal(const Candidate& dropped)
{
    forgetObserversAt(dropped);
    KSMachServiceConnection::disconnectInternal(dropped);
}

// Only a hub that runs has observers to forget: a hub started by the message itself would
// just stay behind with none.
void KSSwitchboardConnection::forgetObserversAt(const Candidate& hub)
{
    if (hub) {
        hub->remoteObjectProxy({})->send(InterfaceNames::kSwitchboardingPrivate,
                                         QStringLiteral("removeAllObservers"), {},
                                         RemoteProxy::Activation::Never);
    }
}

void KSSwitchboardConnection::sendPrivate(const QString& member, const QVariantList& arguments)
{
    if (const auto proxy = serviceProxy()) {
        proxy->send(InterfaceNames::kSwitchboardingPrivate, member, arguments);
    }
}

void KSSwitchboardConnection::addObserver(const QString& observerID, const QString& name,
                                          const QString& source, Block block)
{
    const QString id = observerID.isEmpty() ? nextAnonymousObserverID() : observerID;
    m_subscriber->addObserver(id, {name, source, std::move(block)});
    sendPrivate(QStringLiteral("addProxyObserver"), {id, name, source});
}

void KSSwitchboardConnection::addObserver(const QString& observerID, const QString& name,
                                          Block block)
{
    addObserver(observerID, name, QString(), std::move(block));
}

void KSSwitchboardConnection::removeObserver(const QString& observerID)
{
    m_subscriber->removeLocalObserver(observerID);
    sendPrivate(QStringLiteral("removeObserver"), {observerID});
}

void KSSwitchboardConnection::removeObserversWithPrefix(const QString& prefix)
{
    for (const QString& id : m_subscriber->registeredObserverIDs()) {
        if (id.startsWith(prefix)) {
            removeObserver(id);
        }
    }
}

void KSSwitchboardConnection::removeAllObservers()
{
    m_subscriber->removeAllLocalObservers();
    forgetObserversAt(currentConnection());
}

void KSSwitchboardConnection::addObserverWhenName(const QString& observer,
                                                  const QString& publishedName,
                                                  PublishedBlock isPublished,
                                                  RedactedBlock isRedacted)
{
    const QString base = QStringLiteral("%1->%2").arg(observer, publishedName);
    const auto namesMatch = [publishedName](const QVariantMap& info) {
        return info.value(QStringLiteral("id")).toString() == publishedName;
    };
    if (isRedacted) {
        addObserver(base + QStringLiteral(".wasRedacted"), SwitchboardNames::kEndpointRedacted,
                    SwitchboardNames::kSource,
                    [namesMatch, isRedacted](const QString&, const QVariantMap& info) {
                        if (namesMatch(info)) {
                            isRedacted();
                        }
                    });
    }
    if (!isPublished) {
        return;
    }
    // The notice names the published name only; the endpoint comes from asking the hub.
    const std::weak_ptr<KSConnection> weakSelf = weak_from_this();
    const auto askForEndpoint = [weakSelf, publishedName, isPublished] {
        const auto self = weakSelf.lock();
        const auto proxy = self ? self->serviceProxy() : nullptr;
        if (!proxy) {
            return;
        }
        proxy->call(InterfaceNames::kSwitchboarding, QStringLiteral("queryEndpointForIdentifier"),
                    {publishedName}, [isPublished](const QDBusMessage& reply) {
                        const auto endpoint = qdbus_cast<Endpoint>(reply.arguments().value(0));
                        if (!endpoint.isNone()) {
                            isPublished(endpoint);
                        }
                    });
    };
    // Notices arrive on the messaging thread, which must not wait for a reconnection.
    addObserver(base + QStringLiteral(".didPublish"), SwitchboardNames::kEndpointPublished,
                SwitchboardNames::kSource,
                [namesMatch, askForEndpoint](const QString&, const QVariantMap& info) {
                    if (namesMatch(info)) {
                        QThreadPool::globalInstance()->start(askForEndpoint);
                    }
                });
    askForEndpoint();
}

void KSSwitchboardConnection::removePublishedObserver(const QString& observer,
                                                      const QString& publishedName)
{
    const QString base = QStringLiteral("%1->%2").arg(observer, publishedName);
    removeObserver(base + QStringLiteral(".wasRedacted"));
    removeObserver(base + QStringLiteral(".didPublish"));
}

void KSSwitchboardConnection::postNotification(const QString& name, const QString& source,
                                               const QVariantMap& info)
{
    if (const auto proxy = serviceProxy()) {
        proxy->send(InterfaceNames::kSwitchboarding, QStringLiteral("postNotificationName"),
                    {name, source, SerializableDictionaryAdditions::archivedDictionary(info)});
    }
}

void KSSwitchboardConnection::switchboardDidStartNotification(const QString& startedService)
{
    const bool wasConnected = connected();
    const bool answered = ping();
    const bool movedToOwnHub = wasConnected && startedService == configuredServiceName() &&
                               machServiceName() != SwitchboardNames::busName(startedService);
    if (!answered || movedToOwnHub) {
        disconnect();
    }
    if (!connected()) {
        serviceProxy();
        if (!connected()) {
            Logger::log(4, QStringLiteral("cannot connect with switchboard"));
        }
    }
}
