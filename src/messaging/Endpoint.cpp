#include "messaging/Endpoint.h"

#include <QDBusMetaType>
#include <mutex>

Endpoint::Endpoint(QString service, QString path)
    : m_service(std::move(service))
    , m_path(path.isEmpty() ? QStringLiteral("/") : std::move(path))
{}

QString Endpoint::description() const
{
    return isNone() ? QStringLiteral("(none)") : m_service + m_path;
}

void Endpoint::registerMetaType()
{
    static std::once_flag once;
    std::call_once(once, [] { qDBusRegisterMetaType<Endpoint>(); });
}

QDBusArgument& operator<<(QDBusArgument& argument, const Endpoint& endpoint)
{
    argument.beginStructure();
    argument << endpoint.service() << QDBusObjectPath(endpoint.path());
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, Endpoint& endpoint)
{
    QString service;
    QDBusObjectPath path;
    argument.beginStructure();
    argument >> service >> path;
    argument.endStructure();
    endpoint = Endpoint(service, path.path());
    return argument;
}
