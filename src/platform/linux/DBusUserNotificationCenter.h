#pragma once

#include "platform/UserNotificationCenter.h"

#include <QDBusConnection>
#include <QHash>
#include <QList>
#include <QObject>
#include <optional>

// User notifications through the desktop's org.freedesktop.Notifications server, named as the
// monitor's desktop entry so that the desktop shows them as its own. The server numbers what it
// shows, and only in its reply: a notification replaced or withdrawn before that reply is
// replaced or withdrawn when it arrives. Bodies are escaped for servers that read markup.
// Main thread only.
class DBusUserNotificationCenter final : public QObject, public UserNotificationCenter
{
    Q_OBJECT
public:
    static inline const QString kService = QStringLiteral("org.freedesktop.Notifications");
    static inline const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
    // The freedesktop sound theme's name for an ordinary notification sound.
    static inline const QString kDefaultSoundName = QStringLiteral("message-new-instant");

    struct Application
    {
        QString name;
        // The desktop entry's name without ".desktop"; the server finds the icon through it.
        QString desktopEntry;
        QString iconName;
    };

    explicit DBusUserNotificationCenter(Application application, QObject* parent = nullptr);

    void deliverNotification(const Notification& notification) override;
    void removeDeliveredNotification(const QString& identifier) override;
    void setActivationHandler(ActivationHandler handler) override;

private Q_SLOTS:
    void actionInvoked(uint id, const QString& actionKey);
    void notificationClosed(uint id, uint reason);

private:
    // What the server shows, or is about to show, under one identifier.
    struct Identified
    {
        uint id = 0;
        bool awaitingId = false;
        // Asked for while the server's number was awaited; applied when it comes.
        std::optional<Notification> next;
        bool withdrawn = false;
    };

    void send(const Notification& notification, uint replaces);
    void shownAs(const Notification& notification, uint replaces, std::optional<uint> id);
    void close(uint id);

    QDBusConnection m_bus;
    Application m_application;
    ActivationHandler m_activationHandler;
    // Until the server says whether it reads markup, deliveries wait here.
    std::optional<bool> m_bodyMarkup;
    QList<Notification> m_waitingForCapabilities;
    QHash<QString, Identified> m_identified;
    // By the server's number: what was shown, for the click handler.
    QHash<uint, Notification> m_shown;
};
