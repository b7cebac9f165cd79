#pragma once

#include <QtGlobal>

// The count shown on the monitor's launcher icon; zero shows none.
class DockBadge
{
public:
    virtual ~DockBadge() = default;
    virtual void setBadgeCount(quint64 count) = 0;
};
