#include "CommandPeerAdaptor.h"

#include "CommandPeerServer.h"
#include "exception/KSException.h"
#include "logging/Logger.h"
#include "messaging/NilableString.h"

#include <optional>

namespace {
QString displayName(const QString& name)
{
    return name.isEmpty() ? name : name.at(0).toUpper() + name.mid(1);
}

// A one-way message has no one to answer: a value that is not an archived string or nil is
// logged and dropped.
std::optional<QString> decoded(const QByteArray& data, const char* member)
{
    try {
        return NilableString::unarchived(data);
    } catch (const KSException& failure) {
        const LogLine line = Logger::log(
            4, QStringLiteral("%1 ignored an undecodable string").arg(QLatin1String(member)));
        Logger::log(7, line, failure);
        return std::nullopt;
    }
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

void CommandPeerAdaptor::setActionUUID(const QByteArray& uuid)
{
    if (const auto value = decoded(uuid, "setActionUUID")) {
        m_server->setActionUUID(*value);
    }
}

QByteArray CommandPeerAdaptor::queryActionUUIDWithReply()
{
    return NilableString::archived(m_server->actionUUID());
}

void CommandPeerAdaptor::setCustomDescription(const QByteArray& description)
{
    if (const auto value = decoded(description, "setCustomDescription")) {
        m_customDescription = *value;
    }
}

QByteArray CommandPeerAdaptor::queryCustomDescriptionWithReply()
{
    return NilableString::archived(m_customDescription);
}

QByteArray CommandPeerAdaptor::queryDisplayDescriptionWithReply()
{
    return NilableString::archived(
        m_customDescription.isEmpty()
            ? QStringLiteral("%1 “Demo Archive”").arg(displayName(m_server->name()))
            : m_customDescription);
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
