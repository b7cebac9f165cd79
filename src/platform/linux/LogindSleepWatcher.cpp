#include "platform/linux/LogindSleepWatcher.h"

#include <QDBusConnection>

LogindSleepWatcher::LogindSleepWatcher(QObject* parent)
    : QObject(parent)
{
    QDBusConnection::systemBus().connect(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
        QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"), this,
        SLOT(prepareForSleep(bool)));
}

void LogindSleepWatcher::setWakeHandler(std::function<void()> handler)
{
    m_wakeHandler = std::move(handler);
}

void LogindSleepWatcher::prepareForSleep(bool sleeping)
{
    if (!sleeping && m_wakeHandler) {
        m_wakeHandler();
    }
}
