#pragma once

#include <QString>
#include <QVariantMap>
#include <memory>

class CommandListener;

// What the listener service asks of whoever shows the commands. Every call is optional: the
// defaults make no listener and ignore the news. Called on the main thread.
class CommandListenerServiceDelegate
{
public:
    virtual ~CommandListenerServiceDelegate();

    // A new listener for a command that has none yet, or none to refuse it.
    virtual std::shared_ptr<CommandListener> listenerForCommandIdentifier(const QString& identifier,
                                                                          const QVariantMap& info);
    virtual void willAddListener(CommandListener* listener);
    virtual void didRemoveListener(CommandListener* listener);
};
