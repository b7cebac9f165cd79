#include "CommandPeerAdaptor.h"

#include "CommandPeerServer.h"

namespace {
QString displayName(const QString& name)
{
    return name.isEmpty() ? name : name.at(0).toUpper() + name.mid(1);
}
} // namespace

CommandPeerAdaptor::CommandPeerAdaptor(CommandPeerServer* server)
    : QDBusAbstractAdaptor(server)
    , m_server(server)
{}

bool CommandPeerAdaptor::querySupportsProperty(const QString& property)
{
    return property == QStringLiteral("repositoryRef");
}

QString CommandPeerAdaptor::queryNameWithReply()
{
    return m_server->name();
}

QString CommandPeerAdaptor::queryHumanReadableNameWithReply()
{
    return displayName(m_server->name());
}

void CommandPeerAdaptor::setActionUUID(const QString& uuid)
{
    m_server->setActionUUID(uuid);
}

QString CommandPeerAdaptor::queryActionUUIDWithReply()
{
    return m_server->actionUUID();
}

void CommandPeerAdaptor::setCustomDescription(const QString& description)
{
    m_customDescription = description;
}

QString CommandPeerAdaptor::queryCustomDescriptionWithReply()
{
    return m_customDescription;
}

QString CommandPeerAdaptor::queryDisplayDescriptionWithReply()
{
    return m_customDescription.isEmpty()
               ? QStringLiteral("%1 “Demo Archive”").arg(displayName(m_server->name()))
               : m_customDescription;
}

QString CommandPeerAdaptor::queryProcessIdentifierWithReply()
{
    return m_server->identifier();
}

void CommandPeerAdaptor::addListenerToPublishedService(const QString& service)
{
    m_server->addListenerService(service);
}

void CommandPeerAdaptor::removeListenerWithIdentifier(const QString& identifier)
{
    if (m_server->listenerService() == identifier) {
        m_server->addListenerService(QString());
    }
}

bool CommandPeerAdaptor::queryRunStateWithReply(bool& finished, bool& held)
{
    const auto state = m_server->state().snapshot();
    finished = state.finished;
    held = state.held;
    return state.running;
}

bool CommandPeerAdaptor::queryIsRunningWithReply()
{
    return m_server->state().snapshot().running;
}

bool CommandPeerAdaptor::queryIsFinishedWithReply()
{
    return m_server->state().snapshot().finished;
}

bool CommandPeerAdaptor::queryIsHeldWithReply()
{
    return m_server->state().snapshot().held;
}

void CommandPeerAdaptor::holdWithReason(const QString&)
{
    m_server->state().update([](CommandPeerState::Snapshot& state) { state.held = true; });
}

void CommandPeerAdaptor::releaseHold()
{
    m_server->state().update([](CommandPeerState::Snapshot& state) { state.held = false; });
}

void CommandPeerAdaptor::run()
{
    m_server->state().requestResume();
}

void CommandPeerAdaptor::resume()
{
    m_server->state().requestResume();
}

void CommandPeerAdaptor::cancelFrom(int origin)
{
    m_server->state().requestCancel(origin);
}

bool CommandPeerAdaptor::queryCanCancelWithReply()
{
    return m_server->state().snapshot().canCancel;
}

bool CommandPeerAdaptor::queryIsPausedWithReply()
{
    return m_server->state().snapshot().paused;
}

bool CommandPeerAdaptor::queryCanPauseWithReply()
{
    return m_server->state().snapshot().canPause;
}

bool CommandPeerAdaptor::queryIsPrivilegedWithReply()
{
    return false;
}

void CommandPeerAdaptor::pauseFor(double seconds)
{
    m_server->state().requestPause(seconds);
}
