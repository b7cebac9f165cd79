#pragma once

#include "tracking/CommandListener.h"
#include "tracking/CommandListenerServiceDelegate.h"

#include <QList>
#include <functional>

// A delegate that makes listeners with a factory the test chooses and keeps what it was told.
class RecordingDelegate : public CommandListenerServiceDelegate
{
public:
    using Factory = std::function<std::shared_ptr<CommandListener>(const QString& identifier,
                                                                   const QVariantMap& info)>;

    std::shared_ptr<CommandListener> listenerForCommandIdentifier(const QString& identifier,
                                                                  const QVariantMap& info) override
    {
        asked.append(identifier);
        return factory ? factory(identifier, info) : nullptr;
    }
    void willAddListener(CommandListener* listener) override { willAdd.append(listener); }
    void didRemoveListener(CommandListener* listener) override { didRemove.append(listener); }

    Factory factory;
    QStringList asked;
    QList<CommandListener*> willAdd;
    QList<CommandListener*> didRemove;
};
