#include "messaging/KSConnectionVendor.h"

#include "foundation/NotificationCenter.h"
#include "messaging/InterfaceNames.h"
#include "messaging/KSSwitchboardConnection.h"
#include "messaging/SwitchboardNames.h"

#include <QDBusArgument>

KSConnectionVendor::KSConnectionVendor(std::unique_ptr<AnonymousListener> listener)
    : m_listener(std::move(listener))
{}

KSConnectionVendor::~KSConnectionVendor()
{
    shutdown();
}

Endpoint KSConnectionVendor::endpoint() const
{
    return m_listener ? m_listener->endpoint() : Endpoint();
}

void KSConnectionVendor::publishWithName(const QString& name)
{
    if (m_reconnectObserver == 0) {
        const auto switchboard = KSConnection::switchboardConnection();
        m_reconnectObserver = NotificationCenter::defaultCenter().addObserver(
            KSConnection::kDidConnectNotification, switchboard.get(),
            [this](const QString&, const void*, const QVariantMap&) {
                switchboardDidReconnectNotification();
            });
    }
    m_publishedName = name;
    sendPublication();
}

void KSConnectionVendor::sendPublication()
{
    if (const auto proxy = KSConnection::switchboard()) {
        m_publishedThrough = proxy;
        proxy->send(InterfaceNames::kSwitchboarding, QStringLiteral("publishEndpoint"),
                    {QVariant::fromValue(endpoint()), m_publishedName});
    }
}

void KSConnectionVendor::switchboardDidReconnectNotification()
{
    if (m_publishedName.isEmpty()) {
        return;
    }
    const auto proxy = KSConnection::switchboard();
    if (proxy && proxy == m_publishedThrough.lock()) {
        return;
    }
    sendPublication();
}

void KSConnectionVendor::redact()
{
    if (m_publishedName.isEmpty()) {
        return;
    }
    NotificationCenter::defaultCenter().removeObserver(m_reconnectObserver);
    m_reconnectObserver = 0;
    const QString name = std::exchange(m_publishedName, QString());
    if (const auto proxy = KSConnection::switchboard()) {
        proxy->send(InterfaceNames::kSwitchboarding, QStringLiteral("redactEndpointForIdentifier"),
                    {name});
    }
}

void KSConnectionVendor::shutdown()
{
    redact();
    m_listener.reset();
}
