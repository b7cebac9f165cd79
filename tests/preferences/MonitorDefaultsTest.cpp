#include "preferences/MonitorDefaults.h"

#include "preferences/PreferenceStore.h"
#include "preferences/PropertyList.h"
#include "preferences/RecordingScheduler.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>

using namespace Qt::StringLiterals;

namespace {
// One run of the monitor: its own store, preferences and defaults on the shared folder.
struct Launch
{
    explicit Launch(const QString& folder)
        : preferences(std::make_shared<PreferenceStore>(folder), timer.scheduler())
        , defaults(preferences)
    {}

    RecordingScheduler timer;
    WTUserPreferences preferences;
    MonitorDefaults defaults;
};

class MonitorDefaultsTest : public ::testing::Test
{
protected:
    QString folder() const { return m_dir.path() + u"/Kestrom"_s; }
    QVariantMap monitorFile() const
    {
        return PreferenceStore(folder()).values(WTUserPreferences::kMonitorDomain);
    }

    QTemporaryDir m_dir;
};
} // namespace

TEST_F(MonitorDefaultsTest, ThirteenKeysAreRegisteredWithTheirKinds)
{
    // Each key with its registered value; the value's own type is its property-list kind.
    const QVariantMap expected{{u"KSShowMonitorOnStart"_s, true},
                               {u"KSHideMonitorWhenComplete"_s, true},
                               {u"KSMonitorSpacesJoinAll"_s, true},
                               {u"KSShowStatusIndicatorInStatusMenu"_s, true},
                               {u"KSShowActivityOnActivate"_s, true},
                               {u"KSStatusMinimunCaptureInterval"_s, 21600.0},
                               {u"KSStatusMinimunVerifyInterval"_s, 86400.0},
                               {u"KSStatusCaptureWarningIntervals"_s, qint64(3)},
                               {u"KSStatusCaptureTruantIntervals"_s, qint64(7)},
                               {u"KSStatusVerifyWarningIntervals"_s, qint64(8)},
                               {u"KSStatusVerifyTruantIntervals"_s, qint64(16)},
                               {u"KSStatusFreeWarning"_s, 0.91},
                               {u"KSStatusFreeCritical"_s, 0.96}};
    EXPECT_EQ(MonitorDefaults::registeredDefaults().size(), 13);
    EXPECT_TRUE(PropertyList::isEqual(MonitorDefaults::registeredDefaults(), expected));
}

TEST_F(MonitorDefaultsTest, UnsetKeysReadAsRegisteredAndAreNeverWrittenHelperKeysTheirOwn)
{
    Launch launch(folder());
    MonitorDefaults& defaults = launch.defaults;
    EXPECT_TRUE(defaults.showMonitorOnStart());
    EXPECT_EQ(defaults.statusVerifyTruantIntervals(), 16);
    EXPECT_EQ(defaults.fadedWindowOpacity(), 0.0);
    EXPECT_FALSE(defaults.objectForKey(MonitorDefaults::kImpermanent).isValid());
    launch.preferences.synchronize();
    EXPECT_EQ(monitorFile().keys(), QStringList{u"KSLocalNotifications"_s});

    // A stored value wins, one that does not convert reads as registered, removal restores.
    ASSERT_TRUE(defaults.setBool(false, MonitorDefaults::kShowMonitorOnStart));
    ASSERT_TRUE(defaults.setInteger(5, MonitorDefaults::kStatusCaptureWarningIntervals));
    defaults.setObject(u"lots"_s, MonitorDefaults::kStatusCaptureTruantIntervals);
    defaults.setObject(QByteArray("x"), MonitorDefaults::kStatusFreeWarning);
    EXPECT_FALSE(defaults.showMonitorOnStart());
    EXPECT_EQ(defaults.statusCaptureWarningIntervals(), 5);
    EXPECT_EQ(defaults.statusCaptureTruantIntervals(), 7);
    EXPECT_EQ(defaults.statusFreeWarning(), 0.91);
    ASSERT_TRUE(defaults.removeObjectForKey(MonitorDefaults::kShowMonitorOnStart));
    EXPECT_TRUE(defaults.showMonitorOnStart());
    launch.preferences.synchronize();
    EXPECT_FALSE(monitorFile().contains(u"KSShowMonitorOnStart"_s));
    EXPECT_TRUE(PropertyList::isEqual(monitorFile().value(u"KSStatusCaptureWarningIntervals"_s),
                                      qint64(5)));

    // Helper and client keys read their own domains; only the monitor's holds its defaults.
    EXPECT_EQ(defaults.osaScriptExtensions(), u"scpt"_s);
    EXPECT_TRUE(defaults.useAdminPrivileges());
    WTUserPreferences& preferences = launch.preferences;
    preferences.setValue(u"scpt:kscript"_s, MonitorDefaults::kOSAScriptExtensions,
                         WTUserPreferences::kHelperDomain);
    preferences.setValue(42, MonitorDefaults::kOSAScriptTool, WTUserPreferences::kHelperDomain);
    preferences.setBool(false, MonitorDefaults::kUseAdminPrivileges,
                        WTUserPreferences::kClientDomain);
    EXPECT_EQ(defaults.osaScriptExtensions(), u"scpt:kscript"_s);
    EXPECT_EQ(defaults.osaScriptTool(), u"/usr/bin/osascript"_s);
    EXPECT_FALSE(defaults.useAdminPrivileges());
    EXPECT_FALSE(
        preferences
            .valueForKey(MonitorDefaults::kUseAdminPrivileges, WTUserPreferences::kMonitorDomain)
            .isValid());
}

TEST_F(MonitorDefaultsTest, WrittenOnceAndTheUsersChoiceIsNotResetAtTheNextStart)
{
    {
        Launch first(folder());
        const QVariantMap expected{{u"ActionIncomplete"_s, true}, {u"NeedsRepair"_s, true}};
        EXPECT_TRUE(PropertyList::isEqual(first.defaults.localNotifications(), expected));
        EXPECT_EQ(first.timer.count(), 1);
        first.timer.runPending();
        EXPECT_TRUE(
            PropertyList::isEqual(monitorFile().value(u"KSLocalNotifications"_s), expected));
    }
    for (const QVariantMap& choice : {QVariantMap{{u"ActionIncomplete"_s, false}}, QVariantMap()}) {
        {
            Launch chooses(folder());
            ASSERT_TRUE(chooses.defaults.setObject(choice, MonitorDefaults::kLocalNotifications));
            chooses.preferences.synchronize();
        }
        Launch next(folder());
        EXPECT_TRUE(PropertyList::isEqual(next.defaults.localNotifications(), choice));
        EXPECT_EQ(next.timer.count(), 0);
    }
}
