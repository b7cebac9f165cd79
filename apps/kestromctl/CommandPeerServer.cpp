#include "CommandPeerServer.h"

#include "CommandPeerAdaptor.h"
#include "KSComponentInstallingAdaptor.h"
#include "KSComponentServingAdaptor.h"
#include "RepositoryCommandMessagingAdaptor.h"

#include <QCoreApplication>

CommandPeerServer::CommandPeerServer(QString name, QString identifier, CommandPeerState* state)
    : m_name(std::move(name))
    , m_identifier(std::move(identifier))
    , m_state(state)
{
    new CommandPeerAdaptor(this);
    new KSComponentServingAdaptor(this);
    new KSComponentInstallingAdaptor(this);
    new RepositoryCommandMessagingAdaptor(this);
}

QString CommandPeerServer::listenerService() const
{
    QMutexLocker locker(&m_mutex);
    return m_listenerService;
}

void CommandPeerServer::setActionUUID(const QString& uuid)
{
    QMutexLocker locker(&m_mutex);
    m_actionUUID = uuid;
}

QString CommandPeerServer::actionUUID() const
{
    QMutexLocker locker(&m_mutex);
    return m_actionUUID;
}

void CommandPeerServer::addListenerService(const QString& service)
{
    QMutexLocker locker(&m_mutex);
    m_listenerService = service;
}
