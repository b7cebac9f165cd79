#include "core/ActivityWindow.h"

#include "tracking/CommandListener.h"
#include "tracking/CommandListenerService.h"

#include <algorithm>

ActivityWindow::ActivityWindow(Factory factory)
    : m_factory(std::move(factory))
{}

std::shared_ptr<CommandListener>
ActivityWindow::listenerForCommandIdentifier(const QString& identifier, const QVariantMap& info)
{
    return m_factory ? m_factory(identifier, info) : nullptr;
}

void ActivityWindow::showActivityWindowInFront(bool /*front*/) {}

bool ActivityWindow::isVisible() const
{
    return false;
}

bool ActivityWindow::waitForRunningCommandsBecause(quint32 /*reason*/)
{
    const auto listeners = CommandListenerService::sharedService().listeners();
    return std::any_of(listeners.cbegin(), listeners.cend(),
                       [](const auto& listener) { return listener->commandIsRunning(); });
}
