#pragma once

#include "core/StatusItem.h"
#include "core/UnavailableNotice.h"

// Stands in for the status item until it is built: says once that there is none.
class UnavailableStatusItem final : public StatusItem
{
public:
    void installStatusItem() override;
    void removeStatusItem() override {}
    void loadStatusItemIcon(quint64) override {}
    void darkModeChangeNotification() override {}

private:
    UnavailableNotice m_notice;
};
