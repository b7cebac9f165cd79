#pragma once

#include <QtGlobal>

// A seam whose default does nothing, on purpose, until the composition root installs the
// real one.
class UpdateController
{
public:
    virtual ~UpdateController() = default;
};
