#pragma once

#include <QtGlobal>

// A seam whose default does nothing, on purpose, until the composition root installs the
// real one.
class StatusItem
{
public:
    virtual ~StatusItem() = default;
    virtual void installStatusItem() {}
    virtual void removeStatusItem() {}
    virtual void updateStatusItemState(quint64 /*state*/) {}
};
