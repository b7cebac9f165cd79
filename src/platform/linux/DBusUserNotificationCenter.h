#pragma once

#include "platform/UserNotificationCenter.h"

#include <QDBusConnection>
#include <QHash>
#include <QObject>

// User notifications through the desktop's org.freedesktop.Notifications server. The server
// numbers what it shows; this keeps the number of each identified notification so that it can
// be replaced, closed, and recognised when clicked. Main thread only.
class DBusUserNotificationCenter final : public QObject, public UserNotificationCenter
{
    Q_OBJECT
public:
    static inline const QString kService = QStringLiteral("org.freedesktop.Notifications");
    static inline const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
    // The freedesktop sound theme's name for an ordinary notification sound.
    static inline const QString kDefaultSoundName = QStringLiteral("message-new-instant");

    explicit DBusUserNotificationCenter(const QString& applicationName, QObject* parent = nullptr);

    void deliverNotification(const Notification& notification) override;
    void removeDeliveredNotification(const QString& identifier) override;
    void setActivationHandler(ActivationHandler handler) override;

private Q_SLOTS:
    void actionInvoked(uint id, const QString& actionKey);
    void notificationClosed(uint id, uint reason);

private:
    QDBusConnection m_bus;
    QString m_applicationName;
    ActivationHandler m_activationHandler;
    // By the server's number: what was shown, for the click handler.
    QHash<uint, Notification> m_shown;
};
