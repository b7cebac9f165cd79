#include "platform/linux/DBusUserNotificationCenter.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace {
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");
const QString kDefaultAction = QStringLiteral("default");

QDBusConnection notificationBus()
{
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                         QStringLiteral("kestrom-user-notifications"));
}
} // namespace

DBusUserNotificationCenter::DBusUserNotificationCenter(const QString& applicationName,
                                                       QObject* parent)
    : QObject(parent)
    , m_bus(notificationBus())
    , m_applicationName(applicationName)
{
    m_bus.connect(kService, kPath, kInterface, QStringLiteral("ActionInvoked"), this,
                  SLOT(actionInvoked(uint, QString)));
    m_bus.connect(kService, kPath, kInterface, QStringLiteral("NotificationClosed"), this,
                  SLOT(notificationClosed(uint, uint)));
}

void DBusUserNotificationCenter::deliverNotification(const Notification& notification)
{
    uint replaces = 0;
    if (!notification.identifier.isEmpty()) {
        for (auto shown = m_shown.cbegin(); shown != m_shown.cend(); ++shown) {
            if (shown->identifier == notification.identifier) {
                replaces = shown.key();
                break;
            }
        }
    }
    QVariantMap hints;
    if (notification.playsDefaultSound) {
        hints.insert(QStringLiteral("sound-name"), kDefaultSoundName);
    } else {
        hints.insert(QStringLiteral("suppress-sound"), true);
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Notify"));
    // A click on the body is the "default" action; servers without actions ignore the list.
    call << m_applicationName << replaces << QString() << notification.title
         << notification.informativeText << QStringList{kDefaultAction, QString()} << hints
         << qint32(-1);
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, notification, replaces](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                const QDBusPendingReply<uint> reply = *finished;
                // Without a server nothing is shown; there is nobody to tell.
                if (reply.isError()) {
                    return;
                }
                m_shown.remove(replaces);
                m_shown.insert(reply.value(), notification);
            });
}

void DBusUserNotificationCenter::removeDeliveredNotification(const QString& identifier)
{
    for (auto shown = m_shown.begin(); shown != m_shown.end(); ++shown) {
        if (shown->identifier != identifier) {
            continue;
        }
        QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kInterface,
                                                           QStringLiteral("CloseNotification"));
        call << shown.key();
        m_bus.call(call, QDBus::NoBlock);
        m_shown.erase(shown);
        return;
    }
}

void DBusUserNotificationCenter::setActivationHandler(ActivationHandler handler)
{
    m_activationHandler = std::move(handler);
}

void DBusUserNotificationCenter::actionInvoked(uint id, const QString& actionKey)
{
    const auto shown = m_shown.constFind(id);
    if (shown == m_shown.cend() || actionKey != kDefaultAction || !m_activationHandler) {
        return;
    }
    m_activationHandler(*shown);
}

void DBusUserNotificationCenter::notificationClosed(uint id, uint /*reason*/)
{
    m_shown.remove(id);
}
