#include "tracking/CommandTaskConnection.h"

#include "tracking/CommandProxy.h"

#include <QDBusMessage>
#include <algorithm>
#include <cmath>

namespace {
// Each thread's current line, so that lines about a connection nest under whatever that
// thread is doing.
thread_local LogLine t_logLine;
} // namespace

CommandTaskConnection::CommandTaskConnection() = default;

CommandTaskConnection::~CommandTaskConnection() = default;

void CommandTaskConnection::setTolerance(double tolerance)
{
    if (std::isinf(tolerance) && tolerance > 0) {
        m_tolerance = tolerance;
        return;
    }
    m_tolerance = std::isnan(tolerance) ? 0.0 : std::clamp(tolerance, 0.0, 1.0);
}

QString CommandTaskConnection::processIdentifier()
{
    auto identifier = std::make_shared<QString>();
    performOnCommand([identifier](const CommandProxy& command) {
        command.call(QStringLiteral("queryProcessIdentifierWithReply"), {},
                     [identifier](const QDBusMessage& reply) {
                         *identifier = reply.arguments().value(0).toString();
                     });
    });
    return *identifier;
}

QString CommandTaskConnection::connectionName() const
{
    return {};
}

bool CommandTaskConnection::isRemote() const
{
    return false;
}

bool CommandTaskConnection::isPrivileged() const
{
    return false;
}

void CommandTaskConnection::connectToListener(const std::shared_ptr<CommandListener>& /*listener*/)
{}

void CommandTaskConnection::disconnectFromListener()
{
    if (m_listenerIdentifier.isEmpty()) {
        return;
    }
    // Best effort: a command that cannot be reached has no listener to forget.
    if (const auto proxy = command()) {
        proxy->send(QStringLiteral("removeListenerWithIdentifier"), {m_listenerIdentifier});
    }
}

void CommandTaskConnection::performOnCommand(const Block& block)
{
    // With no command, as with a message to nothing: the block has nobody to talk to.
    if (const auto proxy = command()) {
        block(*proxy);
    }
}

std::unique_ptr<CommandProxy> CommandTaskConnection::command()
{
    return nullptr;
}

LogLine CommandTaskConnection::logLine()
{
    return t_logLine;
}

void CommandTaskConnection::setLogLine(const LogLine& line)
{
    t_logLine = line;
}
