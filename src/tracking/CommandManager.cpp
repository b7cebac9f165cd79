#include "tracking/CommandManager.h"

#include "exception/KSException.h"
#include "logging/Logger.h"
#include "tracking/CommandProxy.h"
#include "tracking/CommandTaskConnection.h"

#include <QDBusMessage>

CommandManager::CommandManager(QObject* parent)
    : CommandListener(parent)
{}

CommandManager::~CommandManager() = default;

void CommandManager::connectToCommand(std::shared_ptr<CommandTaskConnection> connection)
{
    m_connection = std::move(connection);
    if (m_connection) {
        m_connection->connectToListener(shared_from_this());
    }
}

void CommandManager::disconnect()
{
    if (m_connection) {
        m_connection->disconnectFromListener();
    }
    CommandListener::disconnect();
}

void CommandManager::runCommand()
{
    if (m_connection) {
        m_connection->performOnCommand(
            [](const CommandProxy& command) { command.send(QStringLiteral("run")); });
    }
}

void CommandManager::stopCommand(QObject* /*sender*/)
{
    if (!m_connection) {
        return;
    }
    // The origin 1 tells the command that the user asked for the stop.
    constexpr int kUserOrigin = 1;
    try {
        m_connection->performOnCommand([](const CommandProxy& command) {
            command.send(QStringLiteral("cancelFrom"), {kUserOrigin});
        });
    } catch (const KSException& failure) {
        Logger::log(3, nullptr, QStringLiteral("Unable to send stop request to command"), &failure);
        disconnect();
    }
}

bool CommandManager::shouldBeCulledFromService(CommandListenerService* /*service*/)
{
    // Unreachable counts as finished; only a command that says it is busy is kept.
    auto finished = std::make_shared<std::atomic<bool>>(true);
    if (!m_connection) {
        return true;
    }
    try {
        m_connection->performOnCommand([finished](const CommandProxy& command) {
            command.call(QStringLiteral("queryIsFinishedWithReply"), {},
                         [finished](const QDBusMessage& reply) {
                             finished->store(reply.arguments().value(0).toBool());
                         });
        });
    } catch (const KSException& failure) {
        Logger::log(9, QStringLiteral("%1 failed to query listener: %2")
                           .arg(QStringLiteral("-[CommandManager shouldBeCulledFromService:]"),
                                failure.description()));
        return true;
    }
    return finished->load();
}
