#include "core/MonitorApplicationDelegate.h"

#include "core/MonitorServer.h"
#include "fakes/FakeApplicationSession.h"
#include "fakes/FakeClientApplication.h"
#include "fakes/QuietSubsystems.h"
#include "fakes/RecordingDesktopEvents.h"
#include "fakes/RecordingStatusItem.h"
#include "foundation/KeyedArchive.h"
#include "foundation/NotificationCenter.h"
#include "messaging/SwitchboardFixture.h"
#include "preferences/MonitorDefaults.h"
#include "preferences/WTUserPreferences.h"
#include "support/PrivateBus.h"
#include "tracking/ActivityProgressManager.h"
#include "tracking/CommandListenerService.h"

#include <QCoreApplication>
#include <QEvent>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);

// The real hub on a private bus; the delegate with recording seams and a clock the test moves.
class MonitorApplicationDelegateTest : public SwitchboardFixture
{
protected:
    void SetUp() override
    {
        SwitchboardFixture::SetUp();
        MonitorApplicationDelegate::initializeClass();
        MonitorApplicationDelegate::Subsystems subsystems;
        subsystems.statusItem = std::make_unique<RecordingStatusItem>();
        subsystems.desktopEvents = std::make_unique<RecordingDesktopEvents>();
        subsystems.session = std::make_unique<FakeApplicationSession>();
        m_statusItem = static_cast<RecordingStatusItem*>(subsystems.statusItem.get());
        m_events = static_cast<RecordingDesktopEvents*>(subsystems.desktopEvents.get());
        m_session = static_cast<FakeApplicationSession*>(subsystems.session.get());
        fillUnsetSeams(subsystems);
        m_delegate = std::make_unique<MonitorApplicationDelegate>(std::move(subsystems),
                                                                  [this] { return m_now; });
        m_wakeUps = NotificationCenter::defaultCenter().addObserver(
            ActivityProgressManager::kMonitorWakeUpCall, nullptr,
            [this](const QString&, const void*, const QVariantMap&) { ++m_wakeUpCalls; });
    }

    void TearDown() override
    {
        NotificationCenter::defaultCenter().removeObserver(m_wakeUps);
        m_delegate->applicationWillTerminate();
        m_delegate.reset();
        SwitchboardFixture::TearDown();
    }

    MonitorDefaults& defaults() { return MonitorDefaults::standardUserDefaults(); }

    QDateTime m_now = QDateTime(QDate(2026, 11, 22), QTime(12, 0), Qt::UTC);
    std::unique_ptr<MonitorApplicationDelegate> m_delegate;
    RecordingStatusItem* m_statusItem = nullptr;
    RecordingDesktopEvents* m_events = nullptr;
    FakeApplicationSession* m_session = nullptr;
    int m_wakeUps = 0;
    int m_wakeUpCalls = 0;
};

// A seam left unset is missing wiring: it is named when the delegate is made, not found when a
// user presses a button that does nothing.
TEST_F(MonitorApplicationDelegateTest, EverySeamMustBeSetAndTheUnsetOnesAreNamed)
{
    MonitorApplicationDelegate::Subsystems subsystems;
    EXPECT_EQ(subsystems.missing(),
              (QStringList{u"statusItem"_s, u"statusWindow"_s, u"desktopEvents"_s,
                           u"recentArchives"_s, u"commandRequests"_s, u"session"_s, u"scheduler"_s,
                           u"updateController"_s, u"shutdownSheet"_s, u"makeActivityWindow"_s}));
    fillUnsetSeams(subsystems);
    EXPECT_TRUE(subsystems.missing().isEmpty());
    subsystems.scheduler.reset();
    subsystems.shutdownSheet.reset();
    try {
        MonitorApplicationDelegate incomplete(std::move(subsystems));
        ADD_FAILURE() << "an incomplete composition was accepted";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(),
                     "the composition left these seams unset: scheduler, shutdownSheet");
    }
    EXPECT_EQ(MonitorApplicationDelegate::sharedDelegate(), m_delegate.get());
}

TEST_F(MonitorApplicationDelegateTest, StartUpInstallsTheItemAtOnceAndStatusEventsLater)
{
    EXPECT_EQ(m_events->m_volumeObservers, 1);
    // A theme change redraws the status icon, but only once start-up observes it.
    QEvent paletteChange(QEvent::ApplicationPaletteChange);
    QCoreApplication::sendEvent(QCoreApplication::instance(), &paletteChange);
    EXPECT_EQ(m_statusItem->m_themeChanges, 0);
    m_delegate->applicationDidFinishLaunching();
    EXPECT_EQ(m_session->m_relaunchDisabled, 1);
    EXPECT_EQ(m_statusItem->m_installs, 1);
    EXPECT_EQ(m_events->m_applicationObservers, 1);
    EXPECT_EQ(m_events->m_statusMonitoring, 0);
    QCoreApplication::sendEvent(QCoreApplication::instance(), &paletteChange);
    EXPECT_EQ(m_statusItem->m_themeChanges, 1);
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_events->m_statusMonitoring == 1; }, 20000));
}

TEST_F(MonitorApplicationDelegateTest, DockModeFollowsRealChangesOfEitherSettingOnly)
{
    m_delegate->applicationDidFinishLaunching();
    const bool accessory = m_delegate->monitorIsAccessoryApp();
    m_delegate->setMonitorIsAccessoryApp(!accessory);
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_events->m_dockModeUpdates == 1; }, 10000));
    m_delegate->setMonitorIsAccessoryApp(!accessory);
    m_delegate->setRegularAppMode(m_delegate->regularAppMode() + 1);
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_events->m_dockModeUpdates >= 2; }, 10000));
    QCoreApplication::processEvents();
    EXPECT_EQ(m_events->m_dockModeUpdates, 2);
    m_delegate->setMonitorIsAccessoryApp(accessory);
}

TEST_F(MonitorApplicationDelegateTest, StatusIndicatorToggleRedrawsWithoutLosingStateBits)
{
    m_delegate->updateStatusItemState(1 | 4);
    m_delegate->updateStatusItemState(1 | 4);
    EXPECT_EQ(m_statusItem->m_icons, (QList<quint64>{5}));
    m_delegate->setShowStatusInStatusItem(!m_delegate->showStatusInStatusItem());
    EXPECT_EQ(m_statusItem->m_icons, (QList<quint64>{5, 1, 5}));
    EXPECT_EQ(m_delegate->statusImageState(), 5U);
}

TEST_F(MonitorApplicationDelegateTest, ActivationShowsTheWindowUnlessItEchoesOwnSwitchOrAPanel)
{
    m_delegate->applicationDidFinishLaunching();
    // Seconds since the switch to regular (negative: none), a panel on screen, the preference,
    // whether the window shows, whether the focus goes back to the application before.
    for (const auto& [name, sinceSwitch, panel, showOnActivate, window, focusBack] :
         {std::tuple{"echo of the switch", 1, false, true, false, true},
          {"switched back to accessory", 0, false, true, true, false},
          {"switch long ago", 3, false, true, true, false},
          {"no switch", -1, false, true, true, false},
          {"panel on screen", -1, true, true, false, false},
          {"preference off", -1, false, false, false, false}}) {
        SCOPED_TRACE(name);
        m_session->m_activated.clear();
        m_session->m_panelVisible = panel;
        defaults().setBool(showOnActivate, MonitorDefaults::kShowActivityOnActivate);
        if (sinceSwitch >= 0) {
            m_delegate->noteActivationPolicyChange(true, u"org.example.Editor"_s);
            if (std::string_view(name) == "switched back to accessory") {
                m_delegate->noteActivationPolicyChange(false, {});
            }
            m_now = m_now.addSecs(sinceSwitch);
        }
        const int before = m_wakeUpCalls;
        m_delegate->applicationDidBecomeActive();
        EXPECT_EQ(m_wakeUpCalls - before, window ? 1 : 0);
        EXPECT_EQ(m_session->m_activated,
                  focusBack ? QStringList{u"org.example.Editor"_s} : QStringList());
    }
    defaults().removeObjectForKey(MonitorDefaults::kShowActivityOnActivate);
}

TEST_F(MonitorApplicationDelegateTest, ArchiveAndLogLineOpenInTheClient)
{
    FakeClientApplication client;
    m_delegate->openRepository(u"/media/disk/Home.stromi"_s, 7);
    const LogLine line = Logger::log(5, u"something to look at"_s);
    EXPECT_TRUE(m_delegate->viewLogLine(line));
    // Without a line there is nothing to ask the client: the monitor's own viewer opens.
    EXPECT_FALSE(m_delegate->viewLogLine(LogLine()));
    ASSERT_EQ(client.m_actions.size(), 2);
    EXPECT_EQ(client.m_actions[0].first, u"open-archive"_s);
    EXPECT_EQ(client.m_actions[0].second.at(0).toString(), u"/media/disk/Home.stromi"_s);
    // The action travels as a 32-bit integer, as the client's action expects it.
    EXPECT_EQ(client.m_actions[0].second.at(1).metaType(), QMetaType::fromType<qint32>());
    EXPECT_EQ(client.m_actions[1].first, u"view-log"_s);
    EXPECT_EQ(client.m_actions[1].second.at(1).toString(), line->description());

    m_delegate->launchClient();
    ASSERT_EQ(client.m_actions.size(), 3);
    EXPECT_EQ(client.m_actions[2].first, u"launch"_s);

    client.m_activateResult = ClientApplication::kRequestFailed;
    EXPECT_FALSE(m_delegate->viewLogLine(line)) << "a client that cannot be reached took it";
    m_delegate->openRepository(u"/gone.stromi"_s, 1);
    Logger::defaultLogger()->flush();
    EXPECT_EQ(logLinesContaining(u"Unable to open '/gone.stromi'"_s), 1);
}

TEST_F(MonitorApplicationDelegateTest, QuitExitsCleanlyOnlyForSessionEnds)
{
    m_delegate->applicationDidFinishLaunching();
    EXPECT_EQ(m_delegate->applicationShouldTerminate(), MonitorApplicationDelegate::kAbnormalExit);
    EXPECT_FALSE(m_delegate->terminateCleanly());
    Logger::defaultLogger()->flush();
    EXPECT_EQ(logLinesContaining(u"will exit abnormally"_s), 1);

    m_session->m_quitReason = ApplicationSession::kLogOut;
    EXPECT_EQ(m_delegate->applicationShouldTerminate(), MonitorApplicationDelegate::kCleanExit);
    EXPECT_TRUE(m_delegate->terminateCleanly());
}

TEST_F(MonitorApplicationDelegateTest, UndecodablePreferenceFromAPeerLeavesTheSettingAlone)
{
    const QString key = u"KSTestSetting"_s;
    MonitorServer server(m_delegate.get());
    ASSERT_TRUE(server.setComponentPreferenceValue(KeyedArchive::archivedData(u"kept"_s), key));
    EXPECT_FALSE(server.setComponentPreferenceValue(QByteArray("\xff\x00garbage", 9), key));
    EXPECT_EQ(m_delegate->componentPreferenceForKey(key).toString(), u"kept"_s);
    EXPECT_TRUE(server.setComponentPreferenceValue({}, key)) << "empty data is nil: removes";
    EXPECT_FALSE(m_delegate->componentPreferenceForKey(key).isValid());
}

TEST_F(MonitorApplicationDelegateTest, TheStatusMenuKeyFromAPeerInstallsOrRemovesTheItemAtOnce)
{
    const int installs = m_statusItem->m_installs;
    const int removals = m_statusItem->m_removals;
    EXPECT_TRUE(m_delegate->setComponentPreferenceValue(true, u"KSShowStatusMenu"_s));
    EXPECT_EQ(m_statusItem->m_installs, installs + 1);
    EXPECT_TRUE(defaults().showStatusMenu());
    EXPECT_TRUE(m_delegate->setComponentPreferenceValue(false, u"KSShowStatusMenu"_s));
    EXPECT_EQ(m_statusItem->m_removals, removals + 1);
    // Neither a dictionary nor nil can be a boolean: nothing happens and the answer is NO.
    EXPECT_FALSE(m_delegate->setComponentPreferenceValue(QVariantMap{{u"on"_s, true}},
                                                         u"KSShowStatusMenu"_s));
    EXPECT_FALSE(m_delegate->setComponentPreferenceValue(QVariant(), u"KSShowStatusMenu"_s));
    EXPECT_EQ(m_statusItem->m_installs, installs + 1);
    EXPECT_EQ(m_statusItem->m_removals, removals + 1);
}
} // namespace
