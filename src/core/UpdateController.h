#pragma once

#include <QString>

// The seam of the watch for a newer version of the product.
class UpdateController
{
public:
    virtual ~UpdateController() = default;
    virtual bool updateAvailable() const = 0;
    virtual QString readableVersionAvailable() const = 0;
    // The client application started or quit.
    virtual void setClientAppRunning(bool running) = 0;
};
