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

QDBusMessage call(const QString& member)
{
    return QDBusMessage::createMethodCall(DBusUserNotificationCenter::kService,
                                          DBusUserNotificationCenter::kPath, kInterface, member);
}
} // namespace

DBusUserNotificationCenter::DBusUserNotificationCenter(Application application, QObject* parent)
    : QObject(parent)
    , m_bus(notificationBus())
    , m_application(std::move(application))
{
    m_bus.connect(kService, kPath, kInterface, QStringLiteral("ActionInvoked"), this,
                  SLOT(actionInvoked(uint, QString)));
    m_bus.connect(kService, kPath, kInterface, QStringLiteral("NotificationClosed"), this,
                  SLOT(notificationClosed(uint, uint)));
    auto* watcher =
        new QDBusPendingCallWatcher(m_bus.asyncCall(call(QStringLiteral("GetCapabilities"))), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                const QDBusPendingReply<QStringList> reply = *finished;
                // Without an answer, plain text is what every server shows as written.
                m_bodyMarkup =
                    !reply.isError() && reply.value().contains(QStringLiteral("body-markup"));
                for (const Notification& waiting : std::exchange(m_waitingForCapabilities, {})) {
                    deliverNotification(waiting);
                }
            });
}

void DBusUserNotificationCenter::deliverNotification(const Notification& notification)
{
    if (!m_bodyMarkup) {
        m_waitingForCapabilities.append(notification);
        return;
    }
    if (notification.identifier.isEmpty()) {
        send(notification, 0);
        return;
    }
    Identified& identified = m_identified[notification.identifier];
    if (identified.awaitingId) {
        identified.next = notification;
        identified.withdrawn = false;
        return;
    }
    identified.awaitingId = true;
    send(notification, identified.id);
}

void DBusUserNotificationCenter::send(const Notification& notification, uint replaces)
{
    QVariantMap hints{{QStringLiteral("desktop-entry"), m_application.desktopEntry}};
    if (notification.playsDefaultSound) {
        hints.insert(QStringLiteral("sound-name"), kDefaultSoundName);
    } else {
        hints.insert(QStringLiteral("suppress-sound"), true);
    }
    // A command's description is the user's text, not markup.
    const QString body =
        *m_bodyMarkup ? notification.informativeText.toHtmlEscaped() : notification.informativeText;
    QDBusMessage notify = call(QStringLiteral("Notify"));
    // A click on the body is the "default" action; servers without actions ignore the list.
    notify << m_application.name << replaces << m_application.iconName << notification.title << body
           << QStringList{kDefaultAction, QString()} << hints << qint32(-1);
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(notify), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, notification, replaces](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                const QDBusPendingReply<uint> reply = *finished;
                // Without a server nothing is shown; there is nobody to tell.
                shownAs(notification, replaces,
                        reply.isError() ? std::nullopt : std::optional<uint>(reply.value()));
            });
}

void DBusUserNotificationCenter::shownAs(const Notification& notification, uint replaces,
                                         std::optional<uint> id)
{
    m_shown.remove(replaces);
    if (id) {
        m_shown.insert(*id, notification);
    }
    const auto identified = m_identified.find(notification.identifier);
    if (notification.identifier.isEmpty() || identified == m_identified.end()) {
        return;
    }
    identified->awaitingId = false;
    identified->id = id.value_or(0);
    if (identified->withdrawn) {
        close(identified->id);
        m_identified.erase(identified);
    } else if (identified->next) {
        const Notification next = *std::exchange(identified->next, std::nullopt);
        identified->awaitingId = true;
        send(next, identified->id);
    } else if (!id) {
        m_identified.erase(identified);
    }
}

void DBusUserNotificationCenter::removeDeliveredNotification(const QString& identifier)
{
    m_waitingForCapabilities.removeIf(
        [&identifier](const Notification& waiting) { return waiting.identifier == identifier; });
    const auto identified = m_identified.find(identifier);
    if (identifier.isEmpty() || identified == m_identified.end()) {
        return;
    }
    if (identified->awaitingId) {
        identified->withdrawn = true;
        identified->next.reset();
        return;
    }
    close(identified->id);
    m_identified.erase(identified);
}

void DBusUserNotificationCenter::close(uint id)
{
    if (id == 0) {
        return;
    }
    QDBusMessage closing = call(QStringLiteral("CloseNotification"));
    closing << id;
    m_bus.call(closing, QDBus::NoBlock);
    m_shown.remove(id);
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
    for (auto identified = m_identified.begin(); identified != m_identified.end(); ++identified) {
        if (identified->id == id && !identified->awaitingId) {
            m_identified.erase(identified);
            return;
        }
    }
}
