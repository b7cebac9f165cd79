#pragma once

#include "core/StatusItem.h"

#include <QList>

// Records what the status item is asked to show.
class RecordingStatusItem final : public StatusItem
{
public:
    void installStatusItem() override { ++m_installs; }
    void removeStatusItem() override { ++m_removals; }
    void loadStatusItemIcon(quint64 state) override { m_icons.append(state); }
    void darkModeChangeNotification() override { ++m_themeChanges; }

    int m_installs = 0;
    int m_removals = 0;
    int m_themeChanges = 0;
    QList<quint64> m_icons;
};
