#include "tracking/CommandListenerServiceDelegate.h"

#include "tracking/CommandListener.h"

CommandListenerServiceDelegate::~CommandListenerServiceDelegate() = default;

std::shared_ptr<CommandListener>
CommandListenerServiceDelegate::listenerForCommandIdentifier(const QString& /*identifier*/,
                                                             const QVariantMap& /*info*/)
{
    return nullptr;
}

void CommandListenerServiceDelegate::willAddListener(CommandListener* /*listener*/) {}

void CommandListenerServiceDelegate::didRemoveListener(CommandListener* /*listener*/) {}
