#pragma once

class MonitorApplicationDelegate;

// The seam of the window that grades every known archive.
class ArchiveStatusWindow
{
public:
    virtual ~ArchiveStatusWindow() = default;
    // At launch, once the activity window exists: the window reads the statuses from here on.
    virtual void start(MonitorApplicationDelegate& delegate) = 0;
    virtual bool hasStatus() const = 0;
    // Whether any archive is in warning, or critical.
    virtual bool warnings() const = 0;
    virtual bool criticals() const = 0;
    virtual void showStatusWindowInFront(bool front) = 0;
};
