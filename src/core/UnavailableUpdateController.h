#pragma once

#include "core/UpdateController.h"

// Stands in for the update watch until it is built: no update is ever known.
class UnavailableUpdateController final : public UpdateController
{
public:
    bool updateAvailable() const override { return false; }
    QString readableVersionAvailable() const override { return {}; }
    void setClientAppRunning(bool) override {}
};
