#pragma once

#include "tracking/UserNotifier.h"

class MonitorDefaults;
class UserNotificationCenter;

// Tells the user about a command's life and an archive that needs repair, each type only when
// the user chose to hear it ("KSLocalNotifications"). Main thread only.
class MonitorUserNotifier final : public UserNotifier
{
public:
    MonitorUserNotifier(MonitorDefaults& defaults, UserNotificationCenter& center);

    // The type's key in "KSLocalNotifications"; empty for an unknown type.
    // Where a delivered notification keeps its type, for whoever hears its click.
    static inline const QString kTypeKey = QStringLiteral(".Type");

    static QString localNotificationKey(int type);
    // What the type adds to the caller's title.
    static QString titleSuffix(int type);
    static bool playsDefaultSound(int type);

    bool deliversLocalNotificationType(int type) const;
    void setLocalNotificationType(int type, bool enabled);

    void notifyUser(int type, const QString& title, const QString& details,
                    const QString& identifier, const QVariantMap& info) override;
    void unnotifyUserWithIdentifier(const QString& identifier);

private:
    MonitorDefaults& m_defaults;
    UserNotificationCenter& m_center;
};
