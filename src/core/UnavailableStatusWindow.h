#pragma once

#include "core/ArchiveStatusWindow.h"
#include "core/UnavailableNotice.h"

// Stands in for the archive status window where there is none: says once that there is none.
class UnavailableStatusWindow final : public ArchiveStatusWindow
{
public:
    void start(MonitorApplicationDelegate&) override {}
    bool hasStatus() const override { return false; }
    bool warnings() const override { return false; }
    bool criticals() const override { return false; }
    void showStatusWindowInFront(bool) override;

private:
    UnavailableNotice m_notice;
};
