#include "MonitorCompositionRoot.h"

#include "errors/ContextualAlertInfo.h"
#include "messaging/ActionRunSummary.h"
#include "platform/ClientApplication.h"
#include "platform/linux/DBusClientApplication.h"
#include "platform/linux/DesktopApplicationSession.h"
#include "tracking/CommandInfo.h"

MonitorCompositionRoot::MonitorCompositionRoot()
{
    // The client is reached over the session bus; it lives as long as the process.
    static DBusClientApplication client;
    ClientApplication::setDefaultClient(&client);
    // Alerts name commands as the command table does; scheduler replies may carry summaries.
    ContextualAlertInfo::setCommandNamer(&CommandInfo::humanReadableNameForCommandName);
    ActionRunSummary::registerArchivableClass();
}

MonitorApplicationDelegate::Subsystems MonitorCompositionRoot::makeSubsystems() const
{
    // The status item, status window, desktop events, capture history, command requests and
    // scheduler client keep their quiet defaults until their implementations exist.
    MonitorApplicationDelegate::Subsystems subsystems;
    subsystems.session = std::make_unique<DesktopApplicationSession>();
    return subsystems;
}
