#pragma once

#include "platform/UserNotificationCenter.h"

#include <QList>
#include <QStringList>

// Keeps what it is asked to show and withdraw; a test plays the user's click.
class FakeUserNotificationCenter final : public UserNotificationCenter
{
public:
    void deliverNotification(const Notification& notification) override
    {
        m_delivered.append(notification);
    }
    void removeDeliveredNotification(const QString& identifier) override
    {
        m_removed.append(identifier);
    }
    void setActivationHandler(ActivationHandler handler) override { m_handler = handler; }
    void click(int index) const { m_handler(m_delivered.at(index)); }

    QList<Notification> m_delivered;
    QStringList m_removed;
    ActivationHandler m_handler;
};
