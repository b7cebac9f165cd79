#include "SwitchboardHub.h"

#include "KSComponentInstallingAdaptor.h"
#include "KSComponentServingAdaptor.h"
#include "StromSwitchboardingAdaptor.h"
#include "StromSwitchboarding_privateAdaptor.h"
#include "logging/Logger.h"
#include "messaging/InterfaceNames.h"
#include "messaging/MessagingThread.h"
#include "messaging/SerializableDictionaryAdditions.h"
#include "messaging/SwitchboardNames.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServiceWatcher>

SwitchboardHub::SwitchboardHub(QObject* parent)
    : ServedObject(parent)
    , m_clients(new QDBusServiceWatcher(this))
{
    new StromSwitchboardingAdaptor(this);
    new StromSwitchboarding_privateAdaptor(this);
    new KSComponentInstallingAdaptor(this);
    new KSComponentServingAdaptor(this);
    m_clients->setConnection(MessagingThread::instance().connection());
    m_clients->setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
    connect(m_clients, &QDBusServiceWatcher::serviceUnregistered, this,
            &SwitchboardHub::clientLeft);
}

QString SwitchboardHub::sender() const
{
    return calledFromDBus() ? message().service() : QString();
}

void SwitchboardHub::watchClient(const QString& client)
{
    if (!client.isEmpty() && !m_clients->watchedServices().contains(client)) {
        m_clients->addWatchedService(client);
    }
}

void SwitchboardHub::publishEndpoint(const Endpoint& endpoint, const QString& identifier)
{
    if (identifier.isEmpty() || endpoint.isNone()) {
        Logger::log(4, QStringLiteral("-[SwitchboardHub publishEndpoint:forIdentifier:] ignored "
                                      "an empty name or endpoint from %1")
                           .arg(sender()));
        return;
    }
    const QString publisher = sender();
    watchClient(publisher);
    m_endpoints.insert(identifier, {endpoint, publisher});
    announce(SwitchboardNames::kEndpointPublished, identifier);
}

void SwitchboardHub::redactEndpointForIdentifier(const QString& identifier)
{
    redact(identifier);
}

void SwitchboardHub::redact(const QString& identifier)
{
    if (m_endpoints.remove(identifier) > 0) {
        announce(SwitchboardNames::kEndpointRedacted, identifier);
    }
}

Endpoint SwitchboardHub::queryEndpointForIdentifier(const QString& identifier)
{
    return m_endpoints.value(identifier).endpoint;
}

void SwitchboardHub::postNotificationName(const QString& name, const QString& source,
                                          const QByteArray& userInfo)
{
    const QDBusConnection connection = MessagingThread::instance().connection();
    const QString interface = InterfaceNames::kSwitchboardSubscribing;
    for (auto client = m_observers.cbegin(); client != m_observers.cend(); ++client) {
        for (auto it = client->cbegin(); it != client->cend(); ++it) {
            const bool nameMatches = it->name.isEmpty() || it->name == name;
            const bool sourceMatches = it->source.isEmpty() || it->source == source;
            if (!nameMatches || !sourceMatches) {
                continue;
            }
            QDBusMessage forward =
                QDBusMessage::createMethodCall(client.key(), SwitchboardNames::kSubscriberPath,
                                               interface, QStringLiteral("forwardToObserver"));
            forward << it.key() << name << source << userInfo;
            connection.send(forward);
        }
    }
}

void SwitchboardHub::announce(const QString& notification, const QString& identifier)
{
    postNotificationName(
        notification, SwitchboardNames::kSource,
        SerializableDictionaryAdditions::archivedDictionary({{QStringLiteral("id"), identifier}}));
}

void SwitchboardHub::setUser(uint userID)
{
    m_users.insert(sender(), userID);
}

void SwitchboardHub::addProxyObserver(const QString& observer, const QString& name,
                                      const QString& source)
{
    const QString client = sender();
    watchClient(client);
    m_observers[client].insert(observer, {name, source});
}

void SwitchboardHub::removeObserver(const QString& observer)
{
    const auto client = m_observers.find(sender());
    if (client != m_observers.end()) {
        client->remove(observer);
    }
}

void SwitchboardHub::removeAllObservers()
{
    m_observers.remove(sender());
}

QString SwitchboardHub::queryComponentVersionWithReply() const
{
    return kComponentVersion;
}

uint SwitchboardHub::queryBuildNumberWithReply() const
{
    return 0x22512;
}

void SwitchboardHub::clientLeft(const QString& client)
{
    m_clients->removeWatchedService(client);
    m_observers.remove(client);
    m_users.remove(client);
    QStringList gone;
    for (auto it = m_endpoints.cbegin(); it != m_endpoints.cend(); ++it) {
        if (it->publisher == client) {
            gone << it.key();
        }
    }
    for (const QString& identifier : gone) {
        redact(identifier);
    }
}
