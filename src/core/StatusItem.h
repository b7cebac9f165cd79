#pragma once

#include <QtGlobal>

// The seam of the status item. Its default shows nothing, on purpose, until the composition
// root installs the real one; the delegate keeps the icon's state bits and hands them over.
class StatusItem
{
public:
    virtual ~StatusItem() = default;
    // Adds or removes the item as the "KSShowStatusMenu" preference says.
    virtual void installStatusItem() {}
    virtual void removeStatusItem() {}
    virtual void loadStatusItemIcon(quint64 /*state*/) {}
    // The desktop's colours changed: the icon is drawn again for them.
    virtual void darkModeChangeNotification() {}
};
