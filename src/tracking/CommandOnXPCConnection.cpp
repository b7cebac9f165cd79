#include "tracking/CommandOnXPCConnection.h"

#include "exception/Error.h"
#include "exception/KSException.h"
#include "foundation/MainQueue.h"
#include "logging/Logger.h"
#include "messaging/KSPublishedEndpointConnection.h"
#include "tracking/CommandInfo.h"
#include "tracking/CommandListener.h"
#include "tracking/CommandListenerService.h"
#include "tracking/CommandProxy.h"

#include <QDBusMessage>
#include <cmath>

namespace {
const QString kIPC = QStringLiteral("IPC");
constexpr double kForeverRetryInterval = 6.0;

// Attempts 0-4 and every one ending in 8 are logged: enough to see a struggle in the log
// without a line per attempt of a long one.
bool isLoggedAttempt(qint64 attempt)
{
    return attempt < 5 || attempt % 10 == 8;
}
} // namespace

CommandOnXPCConnection::CommandOnXPCConnection(const QString& publishedID)
    : CommandOnXPCConnection(QString(), Endpoint(), publishedID)
{}

CommandOnXPCConnection::CommandOnXPCConnection(const QString& commandName, const Endpoint& endpoint,
                                               const QString& publishedID)
    : m_connectionID(publishedID)
{
    CommandOnXPCConnection::setTolerance(tolerance());
    QString name = commandName;
    if (name.isEmpty()) {
        m_connection = std::make_shared<KSPublishedEndpointConnection>(
            endpoint, m_connectionID, 0, CommandInterface::kCommandMessaging);
        auto asked = std::make_shared<QString>();
        const CommandInterface generic;
        const bool answered =
            m_connection->performSynchronousBlock([asked, &generic](const RemoteProxy& proxy) {
                CommandProxy(proxy, generic)
                    .call(QStringLiteral("queryNameWithReply"), {},
                          [asked](const QDBusMessage& reply) {
                              *asked = reply.arguments().value(0).toString();
                          });
            });
        if (!answered) {
            KSException(kIPC, QStringLiteral("could not obtain command name from remote process"))
                .raise();
        }
        name = *asked;
    }
    // The opened connection keeps its bus object; only what is said over it changes.
    m_interface = CommandInfo::interfaceForName(name);
    if (m_connection) {
        m_connection->setServiceInterface(m_interface.protocol());
    } else {
        m_connection = std::make_shared<KSPublishedEndpointConnection>(endpoint, m_connectionID, 0,
                                                                       m_interface.protocol());
    }
}

CommandOnXPCConnection::~CommandOnXPCConnection()
{
    m_connection->disconnect();
}

void CommandOnXPCConnection::setTolerance(double tolerance)
{
    CommandTaskConnection::setTolerance(tolerance);
    const double stored = this->tolerance();
    if (std::isinf(stored)) {
        m_retryAttempts = kRetryForever;
        m_retryInterval = kForeverRetryInterval;
        return;
    }
    m_retryAttempts = qint64(100.0 * stored + 20.0);
    m_retryInterval = 0.4 * stored + 0.1;
}

QString CommandOnXPCConnection::processIdentifier()
{
    return m_connectionID;
}

QString CommandOnXPCConnection::connectionName() const
{
    return m_connectionID;
}

bool CommandOnXPCConnection::isRemote() const
{
    return true;
}

void CommandOnXPCConnection::connectToListener(const std::shared_ptr<CommandListener>& listener)
{
    CommandListenerService& service = CommandListenerService::sharedService();
    service.addListener(listener, processIdentifier());
    // The bus says at once when the command's process has gone; without this only the cull
    // would find out, minutes later. The listener is held weakly: it owns this connection.
    const std::weak_ptr<CommandListener> weakListener = listener;
    m_connection->setInvalidationHandler([weakListener] {
        MainQueue::dispatchMainAsync([weakListener] {
            if (const auto alive = weakListener.lock()) {
                alive->connectionToCommandWasLost();
            }
        });
    });
    const QString serviceName = service.switchboardName();
    performOnCommand([&serviceName](const CommandProxy& command) {
        command.send(QStringLiteral("addListenerToPublishedService"), {serviceName});
    });
    setListenerIdentifier(serviceName);
}

std::unique_ptr<CommandProxy> CommandOnXPCConnection::command()
{
    const auto proxy = m_connection->serviceProxy();
    if (!proxy) {
        return nullptr;
    }
    return std::make_unique<CommandProxy>(*proxy, m_interface);
}

void CommandOnXPCConnection::performOnCommand(const Block& block)
{
    std::optional<Error> lastError;
    // Attempts follow each other at once; retryInterval is kept for callers, not used here.
    for (qint64 attempt = 0; attempt < m_retryAttempts; ++attempt) {
        Error error;
        const bool done = m_connection->performSynchronousBlock(
            [this, &block](const RemoteProxy& proxy) { block(CommandProxy(proxy, m_interface)); },
            &error);
        if (done) {
            return;
        }
        lastError = error;
        if (isLoggedAttempt(attempt)) {
            const LogLine line =
                Logger::log(attempt == 0 ? 2 : 9, logLine(),
                            QStringLiteral("Problem communicating with helper, retrying..."));
            Logger::log(7, line, QStringLiteral("id"), connectionName());
        }
    }
    const QString reason = QStringLiteral("could not send message to helper process");
    const KSException failure =
        lastError ? KSException::error(*lastError, kIPC, reason) : KSException(kIPC, reason);
    const LogLine line =
        Logger::log(4, logLine(), QStringLiteral("Lost connection with helper"), &failure);
    Logger::log(7, line, QStringLiteral("id"), connectionName());
    failure.raise();
}
