#include "messaging/MessageSync.h"

#include <QDeadlineTimer>
#include <cmath>

MessageSync::MessageSync(int condition)
    : m_condition(condition)
{}

std::shared_ptr<MessageSync> MessageSync::messageLock()
{
    return std::make_shared<MessageSync>(kArmed);
}

int MessageSync::condition() const
{
    QMutexLocker locker(&m_mutex);
    return m_condition;
}

void MessageSync::rearmMessageSync()
{
    transitionToCondition(kArmed);
}

void MessageSync::messageReplied()
{
    transitionToCondition(kReplied);
}

void MessageSync::waitForMessageReply()
{
    sleepUntilCondition(kReplied);
}

bool MessageSync::waitForMessageReplyBeforeInterval(double seconds)
{
    // An infinite interval waits without limit; NaN, like a negative interval, not at all.
    QDeadlineTimer deadline(0);
    if (std::isinf(seconds) && seconds > 0) {
        deadline = QDeadlineTimer(QDeadlineTimer::Forever);
    } else if (std::isfinite(seconds)) {
        deadline = QDeadlineTimer(static_cast<qint64>(std::max(0.0, seconds) * 1000.0));
    }
    QMutexLocker locker(&m_mutex);
    while (m_condition != kReplied) {
        if (!m_changed.wait(&m_mutex, deadline)) {
            return m_condition == kReplied;
        }
    }
    return true;
}

void MessageSync::sleepUntilCondition(int condition)
{
    QMutexLocker locker(&m_mutex);
    while (m_condition != condition) {
        m_changed.wait(&m_mutex);
    }
}

void MessageSync::transitionToCondition(int condition)
{
    QMutexLocker locker(&m_mutex);
    m_condition = condition;
    m_changed.wakeAll();
}

void MessageSync::transitionFromCondition(int from, int to)
{
    QMutexLocker locker(&m_mutex);
    while (m_condition != from) {
        m_changed.wait(&m_mutex);
    }
    m_condition = to;
    m_changed.wakeAll();
}

bool MessageSync::conditionallyTranstionFrom(int from, int to)
{
    QMutexLocker locker(&m_mutex);
    if (m_condition != from) {
        return false;
    }
    m_condition = to;
    m_changed.wakeAll();
    return true;
}
