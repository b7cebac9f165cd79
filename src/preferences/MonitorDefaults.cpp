#include "preferences/MonitorDefaults.h"

#include "preferences/PropertyList.h"
#include "preferences/WTUserPreferences.h"

namespace {
const QString& monitorDomain()
{
    return WTUserPreferences::kMonitorDomain;
}

// A stored value that does not convert falls back to the registered one.
template <typename T, typename Convert>
T converted(const QVariant& stored, const QString& key, Convert convert)
{
    if (std::optional<T> value = convert(stored)) {
        return *value;
    }
    return convert(MonitorDefaults::registeredDefaults().value(key)).value_or(T{});
}
} // namespace

MonitorDefaults::MonitorDefaults(WTUserPreferences& preferences)
    : m_preferences(preferences)
{
    // Written rather than registered: a user who later turns both notifications off keeps
    // that choice instead of getting these back at the next start.
    if (!m_preferences.valueForKey(kLocalNotifications, monitorDomain()).isValid()) {
        m_preferences.setValue(
            QVariantMap{{kActionIncompleteNotification, true}, {kNeedsRepairNotification, true}},
            kLocalNotifications, monitorDomain());
    }
}

MonitorDefaults& MonitorDefaults::standardUserDefaults()
{
    static MonitorDefaults s_standard(WTUserPreferences::sharedPreferences());
    return s_standard;
}

const QVariantMap& MonitorDefaults::registeredDefaults()
{
    static const QVariantMap s_registered{
        {kShowMonitorOnStart, true},
        {kHideMonitorWhenComplete, true},
        {kMonitorSpacesJoinAll, true},
        {kShowStatusIndicatorInStatusMenu, true},
        {kShowActivityOnActivate, true},
        {kStatusMinimunCaptureInterval, 21600.0},
        {kStatusMinimunVerifyInterval, 86400.0},
        {kStatusCaptureWarningIntervals, QVariant::fromValue(qint64(3))},
        {kStatusCaptureTruantIntervals, QVariant::fromValue(qint64(7))},
        {kStatusVerifyWarningIntervals, QVariant::fromValue(qint64(8))},
        {kStatusVerifyTruantIntervals, QVariant::fromValue(qint64(16))},
        {kStatusFreeWarning, 0.91},
        {kStatusFreeCritical, 0.96},
    };
    return s_registered;
}

QVariant MonitorDefaults::objectForKey(const QString& key) const
{
    return m_preferences.valueForKey(key, monitorDomain(), registeredDefaults().value(key));
}

bool MonitorDefaults::boolForKey(const QString& key) const
{
    return converted<bool>(m_preferences.valueForKey(key, monitorDomain()), key,
                           PropertyList::boolValue);
}

qint64 MonitorDefaults::integerForKey(const QString& key) const
{
    return converted<qint64>(m_preferences.valueForKey(key, monitorDomain()), key,
                             PropertyList::integerValue);
}

double MonitorDefaults::doubleForKey(const QString& key) const
{
    return converted<double>(m_preferences.valueForKey(key, monitorDomain()), key,
                             PropertyList::doubleValue);
}

QVariantMap MonitorDefaults::dictionaryForKey(const QString& key) const
{
    const QVariant value = objectForKey(key);
    if (PropertyList::kindOf(value) != PropertyList::Kind::Dictionary) {
        return {};
    }
    return value.toMap();
}

bool MonitorDefaults::setObject(const QVariant& value, const QString& key)
{
    return m_preferences.setValue(value, key, monitorDomain());
}

bool MonitorDefaults::setBool(bool value, const QString& key)
{
    return m_preferences.setBool(value, key, monitorDomain());
}

bool MonitorDefaults::setInteger(qint64 value, const QString& key)
{
    return m_preferences.setInteger(value, key, monitorDomain());
}

bool MonitorDefaults::setDouble(double value, const QString& key)
{
    return m_preferences.setDouble(value, key, monitorDomain());
}

bool MonitorDefaults::removeObjectForKey(const QString& key)
{
    return m_preferences.setValue(QVariant(), key, monitorDomain());
}

QString MonitorDefaults::osaScriptExtensions() const
{
    return stringInDomain(kOSAScriptExtensions, WTUserPreferences::kHelperDomain,
                          QStringLiteral("scpt"));
}

QString MonitorDefaults::osaScriptTool() const
{
    return stringInDomain(kOSAScriptTool, WTUserPreferences::kHelperDomain,
                          QStringLiteral("/usr/bin/osascript"));
}

bool MonitorDefaults::useAdminPrivileges() const
{
    return m_preferences.boolForKey(kUseAdminPrivileges, WTUserPreferences::kClientDomain, true);
}

bool MonitorDefaults::useSchedulerDaemon() const
{
    return m_preferences.boolForKey(kUseSchedulerDaemon, WTUserPreferences::kClientDomain, false);
}

QString MonitorDefaults::stringInDomain(const QString& key, const QString& domain,
                                        const QString& defaultValue) const
{
    const QVariant value = m_preferences.valueForKey(key, domain);
    if (PropertyList::kindOf(value) != PropertyList::Kind::String) {
        return defaultValue;
    }
    return value.toString();
}

bool MonitorDefaults::canHold(const QString& key, const QVariant& value)
{
    using Kind = PropertyList::Kind;
    static const QHash<QString, Kind> kinds{
        {kShowMonitorOnStart, Kind::Boolean},
        {kHideMonitorWhenComplete, Kind::Boolean},
        {kMonitorSpacesJoinAll, Kind::Boolean},
        {kShowStatusIndicatorInStatusMenu, Kind::Boolean},
        {kShowActivityOnActivate, Kind::Boolean},
        {kMonitorAccessoryApp, Kind::Boolean},
        {kShowStatusMenu, Kind::Boolean},
        {kMonitorSpacesMoveToActive, Kind::Boolean},
        {kStatusMinimunCaptureInterval, Kind::Real},
        {kStatusMinimunVerifyInterval, Kind::Real},
        {kStatusFreeWarning, Kind::Real},
        {kStatusFreeCritical, Kind::Real},
        {kFadedWindowOpacity, Kind::Real},
        {kFadingWindowTimeInterval, Kind::Real},
        {kMonitorStatusRetirementDays, Kind::Real},
        {kStatusCaptureWarningIntervals, Kind::Integer},
        {kStatusCaptureTruantIntervals, Kind::Integer},
        {kStatusVerifyWarningIntervals, Kind::Integer},
        {kStatusVerifyTruantIntervals, Kind::Integer},
        {kMonitorRegularAppMode, Kind::Integer},
        {kLocalNotifications, Kind::Dictionary},
        {kMonitorRepositoryEventStates, Kind::Dictionary},
        {kImpermanent, Kind::Dictionary},
    };
    if (!value.isValid()) {
        return true;
    }
    const auto expected = kinds.constFind(key);
    if (expected == kinds.cend()) {
        return true;
    }
    const Kind kind = PropertyList::kindOf(value);
    switch (*expected) {
    case Kind::Integer:
        // Stored as signed 64 bits: a larger unsigned number would change on the way.
        return kind == Kind::Integer && (value.metaType().id() != QMetaType::ULongLong ||
                                         value.toULongLong() <= quint64(INT64_MAX));
    case Kind::Real:
        return kind == Kind::Real || kind == Kind::Integer;
    default:
        return kind == *expected;
    }
}
