#pragma once

// Whether the monitor shows itself as an application of its own (its windows in the taskbar,
// a regular application) or only through its windows and tray icon (an accessory).
class TaskbarPresence
{
public:
    enum class Policy
    {
        Regular,
        Accessory,
    };

    virtual ~TaskbarPresence() = default;
    virtual Policy activationPolicy() const = 0;
    virtual void setActivationPolicy(Policy policy) = 0;
};
