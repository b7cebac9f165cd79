#pragma once

#include <QString>
#include <QVariantMap>
#include <functional>

// The desktop's user notifications: deliver one, withdraw it by its identifier, and hear which
// one the user clicked. Main thread only.
class UserNotificationCenter
{
public:
    struct Notification
    {
        QString title;
        QString informativeText;
        // Empty: the notification cannot be withdrawn or replaced later.
        QString identifier;
        QVariantMap userInfo;
        bool playsDefaultSound = false;
    };
    using ActivationHandler = std::function<void(const Notification& clicked)>;

    virtual ~UserNotificationCenter() = default;

    // A notification with the identifier of one still shown takes its place.
    virtual void deliverNotification(const Notification& notification) = 0;
    virtual void removeDeliveredNotification(const QString& identifier) = 0;
    virtual void setActivationHandler(ActivationHandler handler) = 0;
};
