#pragma once

#include "logging/LogLineIdentifier.h"

#include <QString>
#include <functional>
#include <memory>

class CommandListener;
class CommandProxy;

// The monitor's way back to one running command: queries, run and stop, with a retry policy
// set by a tolerance. The base class reaches nothing; CommandOnXPCConnection reaches a command
// over the bus. Blocking calls are made from the main thread or a background job, never from
// the messaging thread.
class CommandTaskConnection
{
public:
    using Block = std::function<void(const CommandProxy& command)>;

    CommandTaskConnection();
    virtual ~CommandTaskConnection();
    CommandTaskConnection(const CommandTaskConnection&) = delete;
    CommandTaskConnection& operator=(const CommandTaskConnection&) = delete;

    // The name under which the command knows this monitor's listener service.
    QString listenerIdentifier() const { return m_listenerIdentifier; }
    void setListenerIdentifier(const QString& identifier) { m_listenerIdentifier = identifier; }
    double tolerance() const { return m_tolerance; }
    // +inf is kept; anything else is clamped into 0 ... 1.
    virtual void setTolerance(double tolerance);

    virtual QString processIdentifier();
    virtual QString connectionName() const;
    virtual bool isRemote() const;
    virtual bool isPrivileged() const;

    virtual void connectToListener(const std::shared_ptr<CommandListener>& listener);
    virtual void disconnectFromListener();
    // Runs the block on the command; raises a KSException named "IPC" when it cannot.
    virtual void performOnCommand(const Block& block);

    // The log line that lines about connections are attached to, per thread.
    static LogLine logLine();
    static void setLogLine(const LogLine& line);

protected:
    // The command, or none when it cannot be reached.
    virtual std::unique_ptr<CommandProxy> command();

private:
    QString m_listenerIdentifier;
    double m_tolerance = 1.0;
};
