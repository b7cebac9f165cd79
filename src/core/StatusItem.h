#pragma once

#include <QtGlobal>

// The seam of the status item in the panel; the delegate keeps the icon's state bits and hands
// them over.
class StatusItem
{
public:
    virtual ~StatusItem() = default;
    // Adds or removes the item as the "KSShowStatusMenu" preference says.
    virtual void installStatusItem() = 0;
    virtual void removeStatusItem() = 0;
    virtual void loadStatusItemIcon(quint64 state) = 0;
    // The desktop's colours changed: the icon is drawn again for them.
    virtual void darkModeChangeNotification() = 0;
};
