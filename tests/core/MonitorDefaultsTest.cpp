#include "core/MonitorDefaults.h"

#include "core/PreferenceStore.h"
#include "core/PropertyList.h"
#include "core/RecordingScheduler.h"
#include "core/WTUserPreferences.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>

namespace {
// One run of the monitor: its own store, preferences and defaults on the shared folder.
struct Launch
{
    explicit Launch(const QString& folder)
        : store(std::make_shared<PreferenceStore>(folder))
        , preferences(store, timer.scheduler())
        , defaults(preferences)
    {}

    RecordingScheduler timer;
    std::shared_ptr<PreferenceStore> store;
    WTUserPreferences preferences;
    MonitorDefaults defaults;
};

class MonitorDefaultsTest : public ::testing::Test
{
protected:
    QString folder() const { return m_dir.path() + QStringLiteral("/Kestrom"); }
    QVariantMap monitorFile() const
    {
        return PreferenceStore(folder()).values(WTUserPreferences::kMonitorDomain);
    }

    QTemporaryDir m_dir;
};

using MonitorDefaultsRegistration = MonitorDefaultsTest;
using MonitorDefaultsNotifications = MonitorDefaultsTest;
using MonitorDefaultsOtherDomains = MonitorDefaultsTest;
} // namespace

TEST_F(MonitorDefaultsRegistration, ThirteenKeysAreRegisteredWithTheirKinds)
{
    using Kind = PropertyList::Kind;
    const struct
    {
        const char* key;
        QVariant value;
        Kind kind;
    } expected[] = {
        {"KSShowMonitorOnStart", true, Kind::Boolean},
        {"KSHideMonitorWhenComplete", true, Kind::Boolean},
        {"KSMonitorSpacesJoinAll", true, Kind::Boolean},
        {"KSShowStatusIndicatorInStatusMenu", true, Kind::Boolean},
        {"KSShowActivityOnActivate", true, Kind::Boolean},
        {"KSStatusMinimunCaptureInterval", 21600.0, Kind::Real},
        {"KSStatusMinimunVerifyInterval", 86400.0, Kind::Real},
        {"KSStatusCaptureWarningIntervals", 3, Kind::Integer},
        {"KSStatusCaptureTruantIntervals", 7, Kind::Integer},
        {"KSStatusVerifyWarningIntervals", 8, Kind::Integer},
        {"KSStatusVerifyTruantIntervals", 16, Kind::Integer},
        {"KSStatusFreeWarning", 0.91, Kind::Real},
        {"KSStatusFreeCritical", 0.96, Kind::Real},
    };
    const QVariantMap& registered = MonitorDefaults::registeredDefaults();
    EXPECT_EQ(registered.size(), 13);
    for (const auto& entry : expected) {
        const QVariant value = registered.value(QString::fromLatin1(entry.key));
        EXPECT_EQ(PropertyList::kindOf(value), entry.kind) << entry.key;
        EXPECT_TRUE(PropertyList::isEqual(value, entry.value)) << entry.key;
    }
}

TEST_F(MonitorDefaultsRegistration, UnsetKeysReadTheirRegisteredValuesAndAreNeverWritten)
{
    Launch launch(folder());
    const MonitorDefaults& defaults = launch.defaults;
    EXPECT_TRUE(defaults.showMonitorOnStart());
    EXPECT_EQ(defaults.statusMinimunVerifyInterval(), 86400.0);
    EXPECT_EQ(defaults.statusVerifyTruantIntervals(), 16);
    EXPECT_EQ(defaults.statusFreeCritical(), 0.96);
    EXPECT_FALSE(defaults.showStatusMenu());
    EXPECT_FALSE(defaults.monitorAccessoryApp());
    EXPECT_EQ(defaults.monitorRegularAppMode(), 0);
    EXPECT_EQ(defaults.fadedWindowOpacity(), 0.0);
    EXPECT_FALSE(defaults.objectForKey(MonitorDefaults::kImpermanent).isValid());

    launch.preferences.synchronize();
    EXPECT_EQ(monitorFile().keys(), QStringList{MonitorDefaults::kLocalNotifications});
}

TEST_F(MonitorDefaultsRegistration, AStoredValueWinsAndItsRemovalRestoresTheRegisteredOne)
{
    Launch launch(folder());
    MonitorDefaults& defaults = launch.defaults;
    ASSERT_TRUE(defaults.setBool(false, MonitorDefaults::kShowMonitorOnStart));
    ASSERT_TRUE(defaults.setInteger(5, MonitorDefaults::kStatusCaptureWarningIntervals));
    EXPECT_FALSE(defaults.showMonitorOnStart());
    EXPECT_EQ(defaults.statusCaptureWarningIntervals(), 5);

    ASSERT_TRUE(defaults.removeObjectForKey(MonitorDefaults::kShowMonitorOnStart));
    EXPECT_TRUE(defaults.showMonitorOnStart());
    launch.preferences.synchronize();
    EXPECT_FALSE(monitorFile().contains(MonitorDefaults::kShowMonitorOnStart));
    EXPECT_TRUE(PropertyList::isEqual(
        monitorFile().value(MonitorDefaults::kStatusCaptureWarningIntervals), qint64(5)));
    // A stored value that does not convert reads as registered.
    defaults.setObject(QStringLiteral("lots"), MonitorDefaults::kStatusCaptureTruantIntervals);
    defaults.setObject(QByteArray("x"), MonitorDefaults::kStatusFreeWarning);
    EXPECT_EQ(defaults.statusCaptureTruantIntervals(), 7);
    EXPECT_EQ(defaults.statusFreeWarning(), 0.91);
}

TEST_F(MonitorDefaultsNotifications, AFreshDomainGetsBothNotificationsWritten)
{
    Launch launch(folder());
    const QVariantMap expected{{QStringLiteral("ActionIncomplete"), true},
                               {QStringLiteral("NeedsRepair"), true}};
    EXPECT_TRUE(PropertyList::isEqual(launch.defaults.localNotifications(), expected));
    EXPECT_EQ(launch.timer.count(), 1);
    launch.timer.runPending();
    EXPECT_TRUE(
        PropertyList::isEqual(monitorFile().value(MonitorDefaults::kLocalNotifications), expected));
}

TEST_F(MonitorDefaultsNotifications, TheUsersChoiceIsNotResetAtTheNextStart)
{
    const QVariantMap choice{{QStringLiteral("ActionIncomplete"), false}};
    {
        Launch first(folder());
        ASSERT_TRUE(first.defaults.setObject(choice, MonitorDefaults::kLocalNotifications));
        first.preferences.synchronize();
    }
    Launch second(folder());
    EXPECT_TRUE(PropertyList::isEqual(second.defaults.localNotifications(), choice));
    EXPECT_EQ(second.timer.count(), 0);
    {
        Launch third(folder());
        ASSERT_TRUE(third.defaults.setObject(QVariantMap(), MonitorDefaults::kLocalNotifications));
        third.preferences.synchronize();
    }
    Launch fourth(folder());
    EXPECT_TRUE(fourth.defaults.localNotifications().isEmpty());
    EXPECT_EQ(fourth.timer.count(), 0);
}

TEST_F(MonitorDefaultsOtherDomains, HelperAndClientKeysHaveTheirDefaultsAndStoredValues)
{
    Launch launch(folder());
    const MonitorDefaults& defaults = launch.defaults;
    EXPECT_EQ(defaults.osaScriptExtensions(), QStringLiteral("scpt"));
    EXPECT_EQ(defaults.osaScriptTool(), QStringLiteral("/usr/bin/osascript"));
    EXPECT_TRUE(defaults.useAdminPrivileges());
    EXPECT_FALSE(defaults.useSchedulerDaemon());

    WTUserPreferences& preferences = launch.preferences;
    preferences.setValue(QStringLiteral("scpt:kscript"), MonitorDefaults::kOSAScriptExtensions,
                         WTUserPreferences::kHelperDomain);
    preferences.setValue(42, MonitorDefaults::kOSAScriptTool, WTUserPreferences::kHelperDomain);
    preferences.setBool(false, MonitorDefaults::kUseAdminPrivileges,
                        WTUserPreferences::kClientDomain);
    preferences.setBool(true, MonitorDefaults::kUseSchedulerDaemon,
                        WTUserPreferences::kClientDomain);
    EXPECT_EQ(defaults.osaScriptExtensions(), QStringLiteral("scpt:kscript"));
    EXPECT_EQ(defaults.osaScriptTool(), QStringLiteral("/usr/bin/osascript"));
    EXPECT_FALSE(defaults.useAdminPrivileges());
    EXPECT_TRUE(defaults.useSchedulerDaemon());
    // Only the monitor's own domain holds its defaults.
    EXPECT_FALSE(
        preferences
            .valueForKey(MonitorDefaults::kUseAdminPrivileges, WTUserPreferences::kMonitorDomain)
            .isValid());
}
