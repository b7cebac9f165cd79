#pragma once

#include "tracking/CaptureHistory.h"

// Counts the rebuilds it is asked for.
class RecordingCaptureHistory final : public CaptureHistory
{
public:
    void updateHistoryNotification() override { ++m_updates; }

    int updates() const { return m_updates; }

private:
    int m_updates = 0;
};
