#include "core/UnavailableScheduler.h"

void UnavailableScheduler::initializeScheduler()
{
    m_notice.say(QStringLiteral("The scheduler client (next action, hold, run now)"));
}

bool UnavailableScheduler::setActionToExecuteAt(const QString&, double)
{
    m_notice.say(QStringLiteral("Rescheduling an action"));
    return false;
}

void UnavailableScheduler::holdSchedules(int)
{
    m_notice.say(QStringLiteral("Holding schedules"));
}

void UnavailableScheduler::resumeSchedules()
{
    m_notice.say(QStringLiteral("Resuming schedules"));
}
