#pragma once

#include "core/MonitorApplicationDelegate.h"
#include "core/UnavailableScheduler.h"
#include "core/UnavailableShutdownSheet.h"
#include "core/UnavailableStatusItem.h"
#include "core/UnavailableStatusWindow.h"
#include "core/UnavailableUpdateController.h"

// Gives every seam a test left unset the quiet stand-in: the test names what it records, and
// the delegate still gets a complete composition.
inline void fillUnsetSeams(MonitorApplicationDelegate::Subsystems& subsystems)
{
    const auto fill = [](auto& seam, auto make) {
        if (!seam) {
            seam = make();
        }
    };
    fill(subsystems.statusItem, [] { return std::make_unique<UnavailableStatusItem>(); });
    fill(subsystems.statusWindow, [] { return std::make_unique<UnavailableStatusWindow>(); });
    fill(subsystems.desktopEvents, [] { return std::make_unique<DesktopEvents>(); });
    fill(subsystems.recentArchives, [] { return std::make_unique<RecentArchives>(); });
    fill(subsystems.commandRequests, [] { return std::make_unique<CommandRequests>(); });
    fill(subsystems.session, [] { return std::make_unique<ApplicationSession>(); });
    fill(subsystems.scheduler, [] { return std::make_unique<UnavailableScheduler>(); });
    fill(subsystems.updateController,
         [] { return std::make_unique<UnavailableUpdateController>(); });
    fill(subsystems.shutdownSheet, [] { return std::make_unique<UnavailableShutdownSheet>(); });
    if (!subsystems.makeActivityWindow) {
        subsystems.makeActivityWindow = [](MonitorApplicationDelegate&,
                                           ActivityWindow::Factory factory) {
            return std::make_unique<ActivityWindow>(std::move(factory));
        };
    }
}
