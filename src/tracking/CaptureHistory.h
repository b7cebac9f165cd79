#pragma once

// The history of recently captured archives, told that a command has ended so that it can
// rebuild itself.
class CaptureHistory
{
public:
    virtual ~CaptureHistory();

    // Rebuilds without re-evaluating the archives.
    virtual void updateHistoryNotification() = 0;
};
