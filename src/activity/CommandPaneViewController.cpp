#include "activity/CommandPaneViewController.h"

#include "activity/CommandUmbrellaViewController.h"

CommandPaneViewController::CommandPaneViewController(QObject* parent)
    : WTLegacyViewController(parent)
{}

void CommandPaneViewController::setUmbrellaController(CommandUmbrellaViewController* controller)
{
    m_umbrellaController = controller;
}

CommandUmbrellaViewController* CommandPaneViewController::umbrellaController() const
{
    return m_umbrellaController.data();
}

ActivityProgressManager* CommandPaneViewController::progressManager() const
{
    return m_umbrellaController ? m_umbrellaController->progressManager() : nullptr;
}

bool CommandPaneViewController::tryToPerform(const char* action, QObject* sender)
{
    if (m_umbrellaController && m_umbrellaController->tryToPerform(action, sender)) {
        return true;
    }
    return WTLegacyViewController::tryToPerform(action, sender);
}
