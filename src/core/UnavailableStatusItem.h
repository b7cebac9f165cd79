#pragma once

#include "core/StatusItem.h"
#include "core/UnavailableNotice.h"

// Stands in for the status item until it is built: says once that there is none, and logs the
// states the icon would show.
class UnavailableStatusItem final : public StatusItem
{
public:
    void installStatusItem() override;
    void removeStatusItem() override {}
    void loadStatusItemIcon(quint64 state) override;
    void darkModeChangeNotification() override {}

private:
    UnavailableNotice m_notice;
};
