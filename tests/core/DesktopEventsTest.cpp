#include "core/MonitorUserNotifier.h"
#include "core/SessionDesktopEvents.h"
#include "fakes/FakeApplicationWatcher.h"
#include "fakes/FakeDockBadge.h"
#include "fakes/FakeMountTableWatcher.h"
#include "fakes/FakeTaskbarPresence.h"
#include "fakes/FakeUserNotificationCenter.h"
#include "platform/linux/ProcMountTableWatcher.h"
#include "preferences/MonitorDefaults.h"
#include "preferences/PreferenceStore.h"
#include "preferences/WTUserPreferences.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {
using Policy = TaskbarPresence::Policy;

// The desktop events over fake desktop services and preferences of a temporary folder; every
// switchboard post, history update and delegate call is recorded.
class DesktopEventsTest : public ::testing::Test
{
protected:
    DesktopEventsTest()
        : m_preferences(std::make_shared<PreferenceStore>(m_dir.path()),
                        [](std::chrono::milliseconds, const WTUserPreferences::Task&) {})
        , m_defaults(m_preferences)
    {
        SessionDesktopEvents::Services services;
        services.volumes = std::make_unique<FakeMountTableWatcher>();
        services.applications = std::make_unique<FakeApplicationWatcher>();
        services.dockBadge = std::make_unique<FakeDockBadge>();
        services.taskbar = std::make_unique<FakeTaskbarPresence>();
        services.notifications = std::make_unique<FakeUserNotificationCenter>();
        m_volumes = static_cast<FakeMountTableWatcher*>(services.volumes.get());
        m_applications = static_cast<FakeApplicationWatcher*>(services.applications.get());
        m_badge = static_cast<FakeDockBadge*>(services.dockBadge.get());
        m_taskbar = static_cast<FakeTaskbarPresence*>(services.taskbar.get());
        m_center = static_cast<FakeUserNotificationCenter*>(services.notifications.get());
        services.post = [this](const QString& name, const QString& source,
                               const QVariantMap& info) {
            m_posted.append(name + u' ' + source + u' ' + info.firstKey() + u'=' +
                            info.first().toStringList().join(u','));
        };
        SessionDesktopEvents::Hooks hooks;
        hooks.updateHistoryNotification = [this](const QVariantMap& info) {
            m_historyUpdates.append(info);
        };
        hooks.setClientAppRunning = [this](bool running) {
            m_clientRunning.append(running);
        };
        hooks.orderMonitorWindowFront = [this] {
            ++m_windowFronts;
        };
        hooks.noteRegularAppPolicyChange = [this](const QString&) {
            ++m_regularSwitches;
        };
        m_events = std::make_unique<SessionDesktopEvents>(m_defaults, std::move(services),
                                                          std::move(hooks));
    }

    QTemporaryDir m_dir;
    WTUserPreferences m_preferences;
    MonitorDefaults m_defaults;
    std::unique_ptr<SessionDesktopEvents> m_events;
    FakeMountTableWatcher* m_volumes = nullptr;
    FakeApplicationWatcher* m_applications = nullptr;
    FakeDockBadge* m_badge = nullptr;
    FakeTaskbarPresence* m_taskbar = nullptr;
    FakeUserNotificationCenter* m_center = nullptr;
    // "name source key=value" of every post; a list value is joined with commas.
    QStringList m_posted;
    QList<QVariantMap> m_historyUpdates;
    QList<bool> m_clientRunning;
    int m_windowFronts = 0;
    int m_regularSwitches = 0;
};
} // namespace

TEST_F(DesktopEventsTest, EachTypeHasItsTitleSuffixSoundAndChoice)
{
    const struct
    {
        int type;
        const char* title;
        bool sound;
    } cases[] = {
        {0, "Capture started", false},
        {1, "Capture complete", false},
        {2, "Capture incomplete", true},
        {3, "Capture", true},
    };
    const QVariantMap info{{QStringLiteral(".LogLine"), QStringLiteral("4.17")},
                           {QStringLiteral("Path"), QStringLiteral("/a")}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.type);
        m_center->m_delivered.clear();
        m_events->setLocalNotificationType(c.type, false);
        m_events->userNotifier().notifyUser(c.type, QStringLiteral("Capture"),
                                            QStringLiteral("Daily"), QStringLiteral("A1"), info);
        EXPECT_TRUE(m_center->m_delivered.isEmpty());
        m_events->setLocalNotificationType(c.type, true);
        EXPECT_TRUE(m_events->deliversLocalNotificationType(c.type));
        m_events->userNotifier().notifyUser(c.type, QStringLiteral("Capture"),
                                            QStringLiteral("Daily"), QStringLiteral("A1"), info);
        ASSERT_EQ(m_center->m_delivered.size(), 1);
        const auto& shown = m_center->m_delivered.first();
        EXPECT_EQ(shown.title, QString::fromLatin1(c.title));
        EXPECT_EQ(shown.playsDefaultSound, c.sound);
        EXPECT_EQ(shown.informativeText, QStringLiteral("Daily"));
        EXPECT_EQ(shown.identifier, QStringLiteral("A1"));
        EXPECT_EQ(shown.userInfo,
                  QVariantMap({{QStringLiteral(".LogLine"), QStringLiteral("4.17")}}));
    }
    // A click on what was shown brings the activity window forward.
    m_center->click(0);
    EXPECT_EQ(m_windowFronts, 1);
}

TEST_F(DesktopEventsTest, MissingChoicesAreOffAndWithdrawingNeedsAnIdentifier)
{
    m_defaults.removeObjectForKey(MonitorDefaults::kLocalNotifications);
    EXPECT_FALSE(m_events->deliversLocalNotificationType(2));
    m_events->setLocalNotificationType(0, true);
    EXPECT_EQ(m_defaults.localNotifications(),
              QVariantMap({{QStringLiteral("ActionStarted"), true}}));
    m_events->userNotifier().unnotifyUserWithIdentifier(QString());
    m_events->userNotifier().unnotifyUserWithIdentifier(QStringLiteral("U1"));
    EXPECT_EQ(m_center->m_removed, QStringList{QStringLiteral("U1")});
}

TEST_F(DesktopEventsTest, ThePolicyFollowsTheSettingsAndThePaneCount)
{
    const struct
    {
        bool accessory;
        int regularMode;
        quint64 panes;
        Policy policy;
    } cases[] = {
        {true, 1, 3, Policy::Accessory},
        {false, 1, 0, Policy::Regular},
        {false, 0, 2, Policy::Regular},
        {false, 0, 0, Policy::Accessory},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(int(&c - cases));
        m_defaults.setBool(c.accessory, MonitorDefaults::kMonitorAccessoryApp);
        m_defaults.setInteger(c.regularMode, MonitorDefaults::kMonitorRegularAppMode);
        m_events->setDockActivityPaneCount(c.panes);
        m_events->updateDockMode();
        EXPECT_EQ(m_taskbar->m_policy, c.policy);
    }
    // Only a switch to regular is noted for the activation echo: case two switched, case three
    // found the policy regular already.
    EXPECT_EQ(m_regularSwitches, 1);
}

TEST_F(DesktopEventsTest, TheBadgeChangesOnlyWithTheCount)
{
    for (quint64 count : {2u, 2u, 0u}) {
        m_events->setDockActivityPaneCount(count);
    }
    EXPECT_EQ(m_badge->m_counts, (QList<quint64>{2, 0}));
    EXPECT_EQ(m_taskbar->m_changes, 1);
    EXPECT_EQ(m_taskbar->m_policy, Policy::Accessory);
}

TEST_F(DesktopEventsTest, VolumesArePostedAndAMountUpdatesTheHistory)
{
    m_events->observeVolumes();
    m_volumes->m_mounted(QStringLiteral("/media/u/Backup Disk"));
    m_volumes->m_unmounted(QStringLiteral("/media/u/Backup Disk"));
    EXPECT_EQ(
        m_posted,
        (QStringList{
            QStringLiteral("DiskEventVolumeDidMount EventAgent NSDevicePath=/media/u/Backup Disk"),
            QStringLiteral(
                "DiskEventVolumeWasUnmounted EventAgent NSDevicePath=/media/u/Backup Disk")}));
    const QVariantMap info{
        {QStringLiteral("NSDevicePath"), QStringLiteral("/media/u/Backup Disk")}};
    EXPECT_EQ(m_historyUpdates, QList<QVariantMap>{info});
}

TEST_F(DesktopEventsTest, ApplicationsArePostedAndTheClientIsTold)
{
    m_events->observeApplications();
    m_applications->m_launched(QString());
    m_applications->m_launched(QStringLiteral("org.example.Editor"));
    m_applications->m_launched(QStringLiteral("com.kestrom.client"));
    m_applications->m_terminated(QStringLiteral("com.kestrom.client"));
    m_applications->m_running = QStringList{QStringLiteral("org.example.Editor")};
    m_events->refreshRunningApplications();
    EXPECT_EQ(
        m_posted,
        (QStringList{
            QStringLiteral("ApplicationDidLaunch com.kestrom.monitor id=org.example.Editor"),
            QStringLiteral("ApplicationDidLaunch com.kestrom.monitor id=com.kestrom.client"),
            QStringLiteral("ApplicationDidTerminate com.kestrom.monitor id=com.kestrom.client"),
            QStringLiteral(
                "OpenApplicationsNotification com.kestrom.monitor id=org.example.Editor")}));
    EXPECT_EQ(m_clientRunning, (QList<bool>{true, false, false}));
}

TEST(ProcMountTableWatcherTest, ReportsMountPointsThatComeAndGo)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("mountinfo"));
    const auto write = [&path](const QByteArray& table) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(table);
    };
    write("22 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
          "40 22 8:17 / /media/u/Old rw - ext4 /dev/sdb1 rw\n");
    ProcMountTableWatcher watcher(path);
    QStringList events;
    watcher.startWatching([&events](const QString& p) { events << QStringLiteral("+") + p; },
                          [&events](const QString& p) { events << QStringLiteral("-") + p; });
    write("22 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
          "41 22 8:33 / /media/u/Backup\\040Disk rw - vfat /dev/sdc1 rw\n"
          "truncated line\n");
    watcher.rescan();
    watcher.rescan();
    EXPECT_EQ(events, (QStringList{QStringLiteral("-/media/u/Old"),
                                   QStringLiteral("+/media/u/Backup Disk")}));
}
