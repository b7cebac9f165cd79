#include "messaging/BlockCompletion.h"

BlockCompletion::BlockCompletion(const PlatformConnection* connection)
    : m_connection(connection)
{}

void BlockCompletion::finish(std::optional<Error> error)
{
    QMutexLocker locker(&m_mutex);
    if (m_done) {
        return;
    }
    m_done = true;
    m_error = std::move(error);
    m_finished.wakeAll();
}

std::optional<Error> BlockCompletion::wait()
{
    QMutexLocker locker(&m_mutex);
    while (!m_done) {
        m_finished.wait(&m_mutex);
    }
    return m_error;
}
