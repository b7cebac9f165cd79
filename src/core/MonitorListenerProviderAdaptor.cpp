#include "core/MonitorListenerProviderAdaptor.h"

#include "core/MonitorServer.h"

MonitorListenerProviderAdaptor::MonitorListenerProviderAdaptor(MonitorServer* server)
    : GatedAdaptor(server)
    , m_server(server)
{}

void MonitorListenerProviderAdaptor::queryListenerForCommandIdentifier(const QString& identifier,
                                                                       const QByteArray& info)
{
    m_server->queryListenerForCommandIdentifier(identifier, info);
}
