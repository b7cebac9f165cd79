#pragma once

#include "tracking/CommandListener.h"

#include <memory>

class CommandTaskConnection;

// A listener that can also talk back to its command, through the connection it was given:
// run it, stop it, and ask it whether it has finished when it has gone silent.
class CommandManager : public CommandListener
{
    Q_OBJECT

public:
    explicit CommandManager(QObject* parent = nullptr);
    ~CommandManager() override;

    const std::shared_ptr<CommandTaskConnection>& connection() const { return m_connection; }

    // Keeps the connection and lets it register this manager (main thread; the manager must be
    // owned by a std::shared_ptr by then).
    virtual void connectToCommand(std::shared_ptr<CommandTaskConnection> connection);
    void disconnect() override;
    virtual void runCommand();
    // A failed request is logged and ends in disconnect; it never reaches the caller.
    virtual void stopCommand(QObject* sender = nullptr);
    bool shouldBeCulledFromService(CommandListenerService* service) override;

private:
    std::shared_ptr<CommandTaskConnection> m_connection;
};
