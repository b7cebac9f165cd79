#include "messaging/KSMachServiceConnection.h"

#include "messaging/SwitchboardNames.h"

KSMachServiceConnection::KSMachServiceConnection(QString serviceName, QString path, quint64 options,
                                                 QString protocol)
    : KSConnection(options, std::move(protocol))
    , m_configuredServiceName(std::move(serviceName))
    , m_path(std::move(path))
{
    setIdentifier(m_configuredServiceName);
}

QString KSMachServiceConnection::machServiceName() const
{
    const Candidate current = currentConnection();
    return current ? current->serviceName() : SwitchboardNames::busName(m_configuredServiceName);
}

KSConnection::Candidate KSMachServiceConnection::makeConnection()
{
    return makeConnectionTo(m_configuredServiceName, options());
}

KSConnection::Candidate KSMachServiceConnection::makeConnectionTo(const QString& serviceName,
                                                                  quint64 options) const
{
    return std::make_shared<PlatformConnection>(SwitchboardNames::busName(serviceName), m_path,
                                                options);
}
