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

using namespace Qt::StringLiterals;

namespace {
using Policy = TaskbarPresence::Policy;

// A fake for a service the events will own, still reachable by the test.
template <class Fake> std::unique_ptr<Fake> keep(Fake*& kept)
{
    auto fake = std::make_unique<Fake>();
    kept = fake.get();
    return fake;
}

QString describe(const QVariantMap& info)
{
    QStringList pairs;
    for (auto it = info.cbegin(); it != info.cend(); ++it) {
        pairs << it.key() + u'=' + it.value().toStringList().join(u',');
    }
    return pairs.join(u';');
}

// The desktop events over fake desktop services and preferences of a temporary folder; every
// switchboard post and every call of a hook is recorded in order.
class DesktopEventsTest : public ::testing::Test
{
protected:
    DesktopEventsTest()
        : m_preferences(std::make_shared<PreferenceStore>(m_dir.path()),
                        [](std::chrono::milliseconds, const WTUserPreferences::Task&) {})
        , m_defaults(m_preferences)
        , m_events(std::make_unique<SessionDesktopEvents>(
              m_defaults,
              SessionDesktopEvents::Services{
                  keep(m_volumes), keep(m_applications), keep(m_badge), keep(m_taskbar),
                  keep(m_center),
                  [this](const QString& name, const QString& source, const QVariantMap& info) {
                      m_calls << name + u' ' + source + u' ' + describe(info);
                  }},
              SessionDesktopEvents::Hooks{
                  [this](const QVariantMap& info) { m_calls << u"history "_s + describe(info); },
                  [this](bool running) { m_calls << u"client running %1"_s.arg(int(running)); },
                  [this] { m_calls << u"window front"_s; },
                  [this] { m_calls << u"status window front"_s; },
                  [this](bool regular, const QString& previous) {
                      m_calls << (regular ? u"regular after "_s + previous : u"accessory"_s);
                  }}))
    {}

    QTemporaryDir m_dir;
    WTUserPreferences m_preferences;
    MonitorDefaults m_defaults;
    FakeMountTableWatcher* m_volumes = nullptr;
    FakeApplicationWatcher* m_applications = nullptr;
    FakeDockBadge* m_badge = nullptr;
    FakeTaskbarPresence* m_taskbar = nullptr;
    FakeUserNotificationCenter* m_center = nullptr;
    QStringList m_calls;
    std::unique_ptr<SessionDesktopEvents> m_events;
};
} // namespace

TEST_F(DesktopEventsTest, EachTypeHasItsTitleSuffixSoundAndChoice)
{
    // Missing choices are off.
    m_defaults.removeObjectForKey(MonitorDefaults::kLocalNotifications);
    EXPECT_FALSE(m_events->deliversLocalNotificationType(2));
    m_events->setLocalNotificationType(0, true);
    EXPECT_EQ(m_defaults.localNotifications(), QVariantMap({{u"ActionStarted"_s, true}}));
    const QVariantMap info{{u".LogLine"_s, u"4.17"_s}, {u"Path"_s, u"/a"_s}};
    const auto notify = [&](int type) {
        m_events->userNotifier().notifyUser(type, u"Capture"_s, u"Daily"_s, u"A1"_s, info);
    };
    for (const auto& [type, title, sound] : {std::tuple{0, "Capture started", false},
                                             {1, "Capture complete", false},
                                             {2, "Capture incomplete", true},
                                             {3, "Capture", true}}) {
        SCOPED_TRACE(type);
        m_center->m_delivered.clear();
        m_events->setLocalNotificationType(type, false);
        notify(type);
        EXPECT_TRUE(m_center->m_delivered.isEmpty());
        m_events->setLocalNotificationType(type, true);
        EXPECT_TRUE(m_events->deliversLocalNotificationType(type));
        notify(type);
        ASSERT_EQ(m_center->m_delivered.size(), 1);
        const auto& shown = m_center->m_delivered.first();
        EXPECT_EQ(shown.title, QString::fromLatin1(title));
        EXPECT_EQ(shown.playsDefaultSound, sound);
        EXPECT_EQ(shown.informativeText, u"Daily"_s);
        EXPECT_EQ(shown.identifier, u"A1"_s);
        EXPECT_EQ(shown.userInfo, QVariantMap({{u".LogLine"_s, u"4.17"_s}, {u".Type"_s, type}}));
        // A click brings forward the activity window, or the status window for an archive.
        m_center->click(0);
        EXPECT_EQ(m_calls, QStringList{type == 3 ? u"status window front"_s : u"window front"_s});
        m_calls.clear();
    }
    // Withdrawing needs an identifier.
    m_events->userNotifier().unnotifyUserWithIdentifier(QString());
    m_events->userNotifier().unnotifyUserWithIdentifier(u"U1"_s);
    EXPECT_EQ(m_center->m_removed, QStringList{u"U1"_s});
}

TEST_F(DesktopEventsTest, ThePolicyFollowsTheSettingsAndThePaneCount)
{
    // Accessory setting, regular mode, panes, and the policy they give.
    for (const auto& [accessory, regularMode, panes, policy] :
         {std::tuple{true, 1, 3u, Policy::Accessory},
          {false, 1, 0u, Policy::Regular},
          {false, 0, 2u, Policy::Regular},
          {false, 0, 0u, Policy::Accessory}}) {
        SCOPED_TRACE(testing::PrintToString(std::tuple{accessory, regularMode, panes}));
        m_defaults.setBool(accessory, MonitorDefaults::kMonitorAccessoryApp);
        m_defaults.setInteger(regularMode, MonitorDefaults::kMonitorRegularAppMode);
        m_events->setDockActivityPaneCount(panes);
        m_events->updateDockMode();
        EXPECT_EQ(m_taskbar->m_policy, policy);
    }
    // Every switch is noted, none where the policy stays: case one switched from the initial
    // regular, case two back to regular, case three found it regular already, case four
    // switched to accessory again.
    EXPECT_EQ(m_calls.filter(u"regular after"_s).size(), 1) << m_calls.join(u'\n').toStdString();
    EXPECT_EQ(m_calls.filter(u"accessory"_s).size(), 2) << m_calls.join(u'\n').toStdString();
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

TEST_F(DesktopEventsTest, VolumesAndApplicationsArePostedAndPassedOn)
{
    const QString disk = u"/media/u/Backup Disk"_s;
    m_events->observeVolumes();
    m_volumes->m_mounted(disk);
    m_volumes->m_unmounted(disk);
    m_events->observeApplications();
    m_applications->m_launched(QString());
    m_applications->m_launched(u"org.example.Editor"_s);
    m_applications->m_launched(u"com.kestrom.client"_s);
    m_applications->m_terminated(u"com.kestrom.client"_s);
    m_applications->m_running = QStringList{u"org.example.Editor"_s};
    m_events->refreshRunningApplications();
    // A mount updates the capture history; the client is told whether it runs.
    EXPECT_EQ(m_calls,
              (QStringList{
                  u"DiskEventVolumeDidMount EventAgent NSDevicePath="_s + disk,
                  u"history NSDevicePath="_s + disk,
                  u"DiskEventVolumeWasUnmounted EventAgent NSDevicePath="_s + disk,
                  u"ApplicationDidLaunch com.kestrom.monitor id=org.example.Editor"_s,
                  u"ApplicationDidLaunch com.kestrom.monitor id=com.kestrom.client"_s,
                  u"client running 1"_s,
                  u"ApplicationDidTerminate com.kestrom.monitor id=com.kestrom.client"_s,
                  u"client running 0"_s,
                  u"OpenApplicationsNotification com.kestrom.monitor id=org.example.Editor"_s,
                  u"client running 0"_s,
              }));
}

// Only what a person calls a disk is a volume: sandboxes, containers and package images mount
// file systems all the time.
TEST(ProcMountTableWatcherTest, ReportsDisksThatComeAndGo)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(u"mountinfo"_s);
    const auto write = [&path](const QByteArray& table) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(table);
    };
    write("22 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
          "40 22 8:17 / /media/u/Old rw - ext4 /dev/sdb1 rw\n");
    ProcMountTableWatcher watcher(path);
    QStringList events;
    watcher.startWatching([&events](const QString& p) { events << u'+' + p; },
                          [&events](const QString& p) { events << u'-' + p; });
    write("22 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
          "41 22 8:33 / /media/u/Backup\\040Disk rw - vfat /dev/sdc1 rw\n"
          "42 22 0:50 / /srv/nas rw - nfs4 nas:/export rw\n"
          "43 22 0:51 / /media/u/Pool rw - btrfs /dev/sdd rw\n"
          "44 22 7:3 / /snap/core/1 ro - squashfs /dev/loop3 ro\n"
          "45 22 0:52 / /var/lib/c/merged rw - overlay overlay rw\n"
          "46 22 0:53 / /run/user/0/doc rw - fuse.portal portal rw\n"
          "47 22 0:54 / /tmp/sandbox rw - tmpfs tmpfs rw\n"
          "truncated line\n");
    watcher.rescan();
    watcher.rescan();
    EXPECT_EQ(events, (QStringList{u"-/media/u/Old"_s, u"+/media/u/Backup Disk"_s, u"+/srv/nas"_s,
                                   u"+/media/u/Pool"_s}));
}
