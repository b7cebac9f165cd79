#include "CommandPeerState.h"

CommandPeerState::Snapshot CommandPeerState::snapshot() const
{
    QMutexLocker locker(&m_mutex);
    return m_state;
}

void CommandPeerState::update(const std::function<void(Snapshot&)>& change)
{
    QMutexLocker locker(&m_mutex);
    change(m_state);
}

void CommandPeerState::requestCancel(int origin)
{
    QMutexLocker locker(&m_mutex);
    m_cancelRequested = true;
    m_cancelOrigin = origin;
}

void CommandPeerState::requestPause(double seconds)
{
    QMutexLocker locker(&m_mutex);
    m_pauseRequested = true;
    m_pauseSeconds = seconds;
}

void CommandPeerState::requestResume()
{
    QMutexLocker locker(&m_mutex);
    m_resumeRequested = true;
}

bool CommandPeerState::takeCancel(int* origin)
{
    QMutexLocker locker(&m_mutex);
    *origin = m_cancelOrigin;
    return std::exchange(m_cancelRequested, false);
}

bool CommandPeerState::takePause(double* seconds)
{
    QMutexLocker locker(&m_mutex);
    *seconds = m_pauseSeconds;
    return std::exchange(m_pauseRequested, false);
}

bool CommandPeerState::takeResume()
{
    QMutexLocker locker(&m_mutex);
    return std::exchange(m_resumeRequested, false);
}
