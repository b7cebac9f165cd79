#pragma once

#include <QtGlobal>

// A seam whose default does nothing, on purpose, until the composition root installs the
// real one.
class DesktopEvents
{
public:
    virtual ~DesktopEvents() = default;
    virtual void observeVolumes() {}
    virtual void observeApplications() {}
    virtual void beginMonitoringStatusChangeEvents() {}
    virtual void updateDockMode() {}
    // The number of panes in the activity window, shown as the dock badge.
    virtual void setDockActivityPaneCount(quint64 /*count*/) {}
    virtual void refreshRunningApplications() {}
    virtual void setLocalNotificationType(int /*type*/, bool /*enabled*/) {}
    virtual bool deliversLocalNotificationType(int /*type*/) const { return false; }
};
