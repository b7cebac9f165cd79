#pragma once

// The seam of the window that grades every known archive.
class ArchiveStatusWindow
{
public:
    virtual ~ArchiveStatusWindow() = default;
    virtual bool hasStatus() const = 0;
    virtual void showStatusWindowInFront(bool front) = 0;
};
