#pragma once

#include "core/DesktopEvents.h"

// Counts the desktop-event calls the application core makes.
class RecordingDesktopEvents final : public DesktopEvents
{
public:
    void observeVolumes() override { ++m_volumeObservers; }
    void observeApplications() override { ++m_applicationObservers; }
    void beginMonitoringStatusChangeEvents() override { ++m_statusMonitoring; }
    void updateDockMode() override { ++m_dockModeUpdates; }

    int m_volumeObservers = 0;
    int m_applicationObservers = 0;
    int m_statusMonitoring = 0;
    int m_dockModeUpdates = 0;
};
