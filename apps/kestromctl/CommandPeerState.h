#pragma once

#include <QMutex>
#include <QString>
#include <functional>

// What a command peer is doing, shared between the thread that serves the monitor's queries
// and the main thread that runs the command.
class CommandPeerState
{
public:
    struct Snapshot
    {
        bool running = false;
        bool finished = false;
        bool held = false;
        bool paused = false;
        bool canCancel = true;
        bool canPause = true;
    };

    Snapshot snapshot() const;
    void update(const std::function<void(Snapshot&)>& change);

    // Requests from the monitor, taken by the main thread.
    void requestCancel(int origin);
    void requestPause(double seconds);
    void requestResume();
    bool takeCancel(int* origin);
    bool takePause(double* seconds);
    bool takeResume();

private:
    mutable QMutex m_mutex;
    Snapshot m_state;
    bool m_cancelRequested = false;
    int m_cancelOrigin = 0;
    bool m_pauseRequested = false;
    double m_pauseSeconds = 0;
    bool m_resumeRequested = false;
};
