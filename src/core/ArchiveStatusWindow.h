#pragma once

#include <QtGlobal>

// A seam whose default does nothing, on purpose, until the composition root installs the
// real one.
class ArchiveStatusWindow
{
public:
    virtual ~ArchiveStatusWindow() = default;
    virtual bool hasStatus() const { return false; }
    virtual void showStatusWindowInFront(bool /*front*/) {}
};
