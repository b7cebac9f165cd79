#include "messaging/KSPublishedConnection.h"

#include "messaging/InterfaceNames.h"
#include "messaging/KSSwitchboardConnection.h"
#include "messaging/SwitchboardNames.h"

#include <QDBusArgument>
#include <QDBusMetaType>

KSPublishedConnection::KSPublishedConnection(QString publishedName, quint64 options,
                                             QString protocol)
    : KSConnection(options, std::move(protocol))
    , m_publishedName(std::move(publishedName))
{
    setIdentifier(m_publishedName);
}

std::optional<Endpoint> KSPublishedConnection::lookUpEndpoint(const QString& publishedName)
{
    // Written on the messaging thread; read here only after the barrier proved it handled.
    auto found = std::make_shared<Endpoint>();
    const bool answered = switchboardConnection()->performSynchronousBlock(
        [&publishedName, found](const RemoteProxy& proxy) {
            proxy.call(InterfaceNames::kSwitchboarding,
                       QStringLiteral("queryEndpointForIdentifier"), {publishedName},
                       [found](const QDBusMessage& reply) {
                           *found = qdbus_cast<Endpoint>(reply.arguments().value(0));
                       });
        });
    if (!answered || found->isNone()) {
        return std::nullopt;
    }
    return *found;
}

KSConnection::Candidate KSPublishedConnection::makeConnection()
{
    const auto endpoint = lookUpEndpoint(m_publishedName);
    return endpoint ? connectionTo(*endpoint) : nullptr;
}

KSConnection::Candidate KSPublishedConnection::connectionTo(const Endpoint& endpoint) const
{
    return std::make_shared<PlatformConnection>(endpoint.service(), endpoint.path(), options());
}
