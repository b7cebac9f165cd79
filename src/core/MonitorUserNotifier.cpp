#include "core/MonitorUserNotifier.h"

#include "platform/UserNotificationCenter.h"
#include "preferences/MonitorDefaults.h"

#include <iterator>

namespace {
const QString kLogLineKey = QStringLiteral(".LogLine");

struct TypeTraits
{
    QString key;
    QString suffix;
    bool sound;
};

const TypeTraits* traits(int type)
{
    static const TypeTraits table[] = {
        {QStringLiteral("ActionStarted"), QStringLiteral(" started"), false},
        {QStringLiteral("ActionCompleted"), QStringLiteral(" complete"), false},
        {QStringLiteral("ActionIncomplete"), QStringLiteral(" incomplete"), true},
        {QStringLiteral("NeedsRepair"), QString(), true},
    };
    return type >= 0 && type < int(std::size(table)) ? &table[type] : nullptr;
}
} // namespace

MonitorUserNotifier::MonitorUserNotifier(MonitorDefaults& defaults, UserNotificationCenter& center)
    : m_defaults(defaults)
    , m_center(center)
{}

QString MonitorUserNotifier::localNotificationKey(int type)
{
    const TypeTraits* known = traits(type);
    return known ? known->key : QString();
}

QString MonitorUserNotifier::titleSuffix(int type)
{
    const TypeTraits* known = traits(type);
    return known ? known->suffix : QString();
}

bool MonitorUserNotifier::playsDefaultSound(int type)
{
    const TypeTraits* known = traits(type);
    return known && known->sound;
}

bool MonitorUserNotifier::deliversLocalNotificationType(int type) const
{
    const QString key = localNotificationKey(type);
    return !key.isEmpty() && m_defaults.localNotifications().value(key).toBool();
}

void MonitorUserNotifier::setLocalNotificationType(int type, bool enabled)
{
    const QString key = localNotificationKey(type);
    if (key.isEmpty()) {
        return;
    }
    QVariantMap choices = m_defaults.localNotifications();
    choices.insert(key, enabled);
    m_defaults.setObject(choices, MonitorDefaults::kLocalNotifications);
}

void MonitorUserNotifier::notifyUser(int type, const QString& title, const QString& details,
                                     const QString& identifier, const QVariantMap& info)
{
    if (!deliversLocalNotificationType(type)) {
        return;
    }
    UserNotificationCenter::Notification notification;
    notification.title = title + titleSuffix(type);
    notification.playsDefaultSound = playsDefaultSound(type);
    notification.informativeText = details;
    notification.identifier = identifier;
    notification.userInfo.insert(kTypeKey, type);
    if (const auto line = info.constFind(kLogLineKey); line != info.cend()) {
        notification.userInfo.insert(kLogLineKey, *line);
    }
    m_center.deliverNotification(notification);
}

void MonitorUserNotifier::unnotifyUserWithIdentifier(const QString& identifier)
{
    if (!identifier.isEmpty()) {
        m_center.removeDeliveredNotification(identifier);
    }
}
