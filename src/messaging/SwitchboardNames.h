#pragma once

#include <QString>

// Names by which the product's processes find the hub and each other.
class SwitchboardNames
{
public:
    static inline const QString kSwitchboardPath = QStringLiteral("/com/kestrom/Switchboard");
    static inline const QString kSubscriberPath =
        QStringLiteral("/com/kestrom/SwitchboardSubscriber");
    static inline const QString kSource = QStringLiteral("Switchboard");
    static inline const QString kEndpointPublished = QStringLiteral("SwitchboardEndpointPublished");
    static inline const QString kEndpointRedacted = QStringLiteral("SwitchboardEndpointRedacted");

    // "com.kestrom.switchboard.<uid>": the user's own hub.
    static QString perUserServiceName();
    // "com.kestrom.switchboard": the hub on the system bus.
    static QString systemWideServiceName();
    // "com.kestrom.switchboard.started": the distributed notice of a hub's start.
    static QString startedNotificationName();
    // The user the process works for: its effective user, or for the super-user the user whose
    // login it descends from (the kernel's login uid), so a privileged helper still reaches that
    // user's hub; 0 when there is none. Computed once.
    static uint processUserID();
    // The kernel's login uid of a process that no login started.
    static constexpr uint kNoLoginUser = 0xFFFFFFFFU;
    // A dotted service name as a bus name: each element that starts with a digit gets "_".
    static QString busName(const QString& serviceName);
};
