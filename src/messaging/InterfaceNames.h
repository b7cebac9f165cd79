#pragma once

#include <QString>
#include <QStringList>

// The product's D-Bus interfaces that code names directly, in one place; a test checks each
// against the interface files. Members of a command's protocol are found through
// ProtocolCatalogue instead.
class InterfaceNames
{
public:
    static inline const QString kComponentMessaging =
        QStringLiteral("com.kestrom.KSComponentMessaging");
    static inline const QString kSwitchboarding = QStringLiteral("com.kestrom.StromSwitchboarding");
    static inline const QString kSwitchboardingPrivate =
        QStringLiteral("com.kestrom.StromSwitchboarding_private");
    static inline const QString kSwitchboardSubscribing =
        QStringLiteral("com.kestrom.SwitchboardSubscribing");
    static inline const QString kCommandListenerMessaging =
        QStringLiteral("com.kestrom.CommandListenerMessaging");
    static inline const QString kCommandListenerServiceProvider =
        QStringLiteral("com.kestrom.CommandListenerServiceProvider");

    static QStringList all()
    {
        return {kComponentMessaging,       kSwitchboarding,
                kSwitchboardingPrivate,    kSwitchboardSubscribing,
                kCommandListenerMessaging, kCommandListenerServiceProvider};
    }
};
