#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>

class WTUserPreferences;

// The monitor's standard user defaults: its own domain with the registered defaults under it.
// Registered values live in memory only; a key the user never set reads as its registered
// value and is never written to the file.
class MonitorDefaults
{
public:
    // Registered.
    static inline const QString kShowMonitorOnStart = QStringLiteral("KSShowMonitorOnStart");
    static inline const QString kHideMonitorWhenComplete =
        QStringLiteral("KSHideMonitorWhenComplete");
    static inline const QString kMonitorSpacesJoinAll = QStringLiteral("KSMonitorSpacesJoinAll");
    static inline const QString kShowStatusIndicatorInStatusMenu =
        QStringLiteral("KSShowStatusIndicatorInStatusMenu");
    static inline const QString kShowActivityOnActivate =
        QStringLiteral("KSShowActivityOnActivate");
    // "Minimun" is how these keys have always been stored.
    static inline const QString kStatusMinimunCaptureInterval =
        QStringLiteral("KSStatusMinimunCaptureInterval");
    static inline const QString kStatusMinimunVerifyInterval =
        QStringLiteral("KSStatusMinimunVerifyInterval");
    static inline const QString kStatusCaptureWarningIntervals =
        QStringLiteral("KSStatusCaptureWarningIntervals");
    static inline const QString kStatusCaptureTruantIntervals =
        QStringLiteral("KSStatusCaptureTruantIntervals");
    static inline const QString kStatusVerifyWarningIntervals =
        QStringLiteral("KSStatusVerifyWarningIntervals");
    static inline const QString kStatusVerifyTruantIntervals =
        QStringLiteral("KSStatusVerifyTruantIntervals");
    static inline const QString kStatusFreeWarning = QStringLiteral("KSStatusFreeWarning");
    static inline const QString kStatusFreeCritical = QStringLiteral("KSStatusFreeCritical");

    // Not registered: absent reads as NO, 0 or nothing.
    static inline const QString kMonitorAccessoryApp = QStringLiteral("KSMonitorAccessoryApp");
    static inline const QString kMonitorRegularAppMode = QStringLiteral("KSMonitorRegularAppMode");
    static inline const QString kShowStatusMenu = QStringLiteral("KSShowStatusMenu");
    static inline const QString kLocalNotifications = QStringLiteral("KSLocalNotifications");
    static inline const QString kMonitorRepositoryEventStates =
        QStringLiteral("KSMonitorRepositoryEventStates");
    static inline const QString kMonitorSpacesMoveToActive =
        QStringLiteral("KSMonitorSpacesMoveToActive");
    static inline const QString kFadedWindowOpacity = QStringLiteral("KSFadedWindowOpacity");
    static inline const QString kFadingWindowTimeInterval =
        QStringLiteral("KSFadingWindowTimeInterval");
    static inline const QString kMonitorStatusRetirementDays =
        QStringLiteral("KSMonitorStatusRetirementDays");
    static inline const QString kImpermanent = QStringLiteral("KSImpermanent");

    // Notification types of kLocalNotifications.
    static inline const QString kActionIncompleteNotification = QStringLiteral("ActionIncomplete");
    static inline const QString kNeedsRepairNotification = QStringLiteral("NeedsRepair");

    // In the helper's domain.
    static inline const QString kOSAScriptExtensions = QStringLiteral("KSOSAScriptExtensions");
    static inline const QString kOSAScriptTool = QStringLiteral("KSOSAScriptTool");
    // In the client's domain.
    static inline const QString kUseAdminPrivileges = QStringLiteral("KSUseAdminPrivileges");
    static inline const QString kUseSchedulerDaemon = QStringLiteral("KSUseSchedulerDaemon");

    // Writes the initial notification choices when the domain holds none.
    explicit MonitorDefaults(WTUserPreferences& preferences);

    // On the shared preferences; created on first use.
    static MonitorDefaults& standardUserDefaults();
    static const QVariantMap& registeredDefaults();

    WTUserPreferences& preferences() const { return m_preferences; }

    // Whether the value may be stored under the key: a key of known type takes only a value of
    // that type (any integer for a double, an integer in 64 bits); nil (removal) is always
    // allowed here. Unknown keys take any value.
    static bool canHold(const QString& key, const QVariant& value);

    // The stored value, else the registered one, else an invalid QVariant.
    QVariant objectForKey(const QString& key) const;
    bool boolForKey(const QString& key) const;
    qint64 integerForKey(const QString& key) const;
    double doubleForKey(const QString& key) const;
    QVariantMap dictionaryForKey(const QString& key) const;
    // Answer whether the stored value changed; an invalid value removes the key.
    bool setObject(const QVariant& value, const QString& key);
    bool setBool(bool value, const QString& key);
    bool setInteger(qint64 value, const QString& key);
    bool setDouble(double value, const QString& key);
    bool removeObjectForKey(const QString& key);

    bool showMonitorOnStart() const { return boolForKey(kShowMonitorOnStart); }
    bool hideMonitorWhenComplete() const { return boolForKey(kHideMonitorWhenComplete); }
    bool monitorSpacesJoinAll() const { return boolForKey(kMonitorSpacesJoinAll); }
    bool showStatusIndicatorInStatusMenu() const
    {
        return boolForKey(kShowStatusIndicatorInStatusMenu);
    }
    bool showActivityOnActivate() const { return boolForKey(kShowActivityOnActivate); }
    double statusMinimunCaptureInterval() const
    {
        return doubleForKey(kStatusMinimunCaptureInterval);
    }
    double statusMinimunVerifyInterval() const
    {
        return doubleForKey(kStatusMinimunVerifyInterval);
    }
    qint64 statusCaptureWarningIntervals() const
    {
        return integerForKey(kStatusCaptureWarningIntervals);
    }
    qint64 statusCaptureTruantIntervals() const
    {
        return integerForKey(kStatusCaptureTruantIntervals);
    }
    qint64 statusVerifyWarningIntervals() const
    {
        return integerForKey(kStatusVerifyWarningIntervals);
    }
    qint64 statusVerifyTruantIntervals() const
    {
        return integerForKey(kStatusVerifyTruantIntervals);
    }
    double statusFreeWarning() const { return doubleForKey(kStatusFreeWarning); }
    double statusFreeCritical() const { return doubleForKey(kStatusFreeCritical); }

    bool monitorAccessoryApp() const { return boolForKey(kMonitorAccessoryApp); }
    qint64 monitorRegularAppMode() const { return integerForKey(kMonitorRegularAppMode); }
    bool showStatusMenu() const { return boolForKey(kShowStatusMenu); }
    QVariantMap localNotifications() const { return dictionaryForKey(kLocalNotifications); }
    QVariantMap monitorRepositoryEventStates() const
    {
        return dictionaryForKey(kMonitorRepositoryEventStates);
    }
    bool monitorSpacesMoveToActive() const { return boolForKey(kMonitorSpacesMoveToActive); }
    double fadedWindowOpacity() const { return doubleForKey(kFadedWindowOpacity); }
    double fadingWindowTimeInterval() const { return doubleForKey(kFadingWindowTimeInterval); }
    double monitorStatusRetirementDays() const
    {
        return doubleForKey(kMonitorStatusRetirementDays);
    }

    // Colon-separated file extensions.
    QString osaScriptExtensions() const;
    QString osaScriptTool() const;
    bool useAdminPrivileges() const;
    bool useSchedulerDaemon() const;

private:
    QString stringInDomain(const QString& key, const QString& domain,
                           const QString& defaultValue) const;

    WTUserPreferences& m_preferences;
};
