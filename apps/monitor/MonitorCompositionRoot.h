#pragma once

#include "core/MonitorApplicationDelegate.h"

// The one place where the monitor's platform adapters and subsystem implementations are
// chosen. Everything below it works against interfaces, so tests choose fakes instead.
class MonitorCompositionRoot
{
public:
    MonitorCompositionRoot();

    // The subsystems for the delegate; each call makes a fresh set.
    MonitorApplicationDelegate::Subsystems makeSubsystems() const;

private:
    std::unique_ptr<SchedulerClient> makeScheduler() const;
    std::unique_ptr<DesktopEvents> makeDesktopEvents(RecentArchives& recentArchives) const;
};
