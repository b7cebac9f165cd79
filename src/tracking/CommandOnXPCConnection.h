#pragma once

#include "messaging/Endpoint.h"
#include "tracking/CommandInterface.h"
#include "tracking/CommandTaskConnection.h"

#include <QMutex>
#include <limits>

class KSPublishedEndpointConnection;

// The connection to a command that published its endpoint on the switchboard under its command
// identifier. A dead command is retried as often as the tolerance allows, back to back.
class CommandOnXPCConnection : public CommandTaskConnection
{
public:
    static constexpr qint64 kRetryForever = std::numeric_limits<qint64>::max();

    explicit CommandOnXPCConnection(const QString& publishedID);
    // Without a command name the command is asked for it (raising an "IPC" KSException when it
    // does not answer); without an endpoint the switchboard's is used.
    CommandOnXPCConnection(const QString& commandName, const Endpoint& endpoint,
                           const QString& publishedID);
    ~CommandOnXPCConnection() override;

    const QString& connectionID() const { return m_connectionID; }
    const std::shared_ptr<KSPublishedEndpointConnection>& connection() const
    {
        return m_connection;
    }
    qint64 retryAttempts() const { return m_retryAttempts; }
    double retryInterval() const { return m_retryInterval; }
    const CommandInterface& interface() const { return m_interface; }

    void setTolerance(double tolerance) override;
    QString processIdentifier() override;
    QString connectionName() const override;
    bool isRemote() const override;

    void connectToListener(const std::shared_ptr<CommandListener>& listener) override;
    void performOnCommand(const Block& block) override;

protected:
    std::unique_ptr<CommandProxy> command() override;

private:
    QString m_connectionID;
    std::shared_ptr<KSPublishedEndpointConnection> m_connection;
    qint64 m_retryAttempts = 0;
    double m_retryInterval = 0.0;
    CommandInterface m_interface;
};
