#pragma once

#include "core/ArchiveStatusWindow.h"
#include "core/UnavailableNotice.h"

// Stands in for the archive status window until it is built: says once that there is none.
class UnavailableStatusWindow final : public ArchiveStatusWindow
{
public:
    bool hasStatus() const override { return false; }
    void showStatusWindowInFront(bool) override;

private:
    UnavailableNotice m_notice;
};
