#pragma once

#include "platform/TaskbarPresence.h"

// Keeps the policy it is given and counts the changes.
class FakeTaskbarPresence final : public TaskbarPresence
{
public:
    Policy activationPolicy() const override { return m_policy; }
    void setActivationPolicy(Policy policy) override
    {
        m_policy = policy;
        ++m_changes;
    }
    Policy m_policy = Policy::Regular;
    int m_changes = 0;
};
