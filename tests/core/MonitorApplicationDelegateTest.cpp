#include "core/MonitorApplicationDelegate.h"

#include "core/MonitorServer.h"
#include "fakes/FakeApplicationSession.h"
#include "fakes/FakeClientApplication.h"
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

TEST_F(MonitorApplicationDelegateTest, StartUpInstallsTheItemAtOnceAndStatusEventsLater)
{
    EXPECT_EQ(m_events->m_volumeObservers, 1);
    m_delegate->applicationDidFinishLaunching();
    EXPECT_EQ(m_session->m_relaunchDisabled, 1);
    EXPECT_EQ(m_statusItem->m_installs, 1);
    EXPECT_EQ(m_events->m_applicationObservers, 1);
    EXPECT_EQ(m_events->m_statusMonitoring, 0);
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

TEST_F(MonitorApplicationDelegateTest, ThemeChangeRedrawsTheStatusIcon)
{
    QEvent paletteChange(QEvent::ApplicationPaletteChange);
    QCoreApplication::sendEvent(QCoreApplication::instance(), &paletteChange);
    EXPECT_EQ(m_statusItem->m_themeChanges, 0) << "observed before start-up";
    m_delegate->applicationDidFinishLaunching();
    QCoreApplication::sendEvent(QCoreApplication::instance(), &paletteChange);
    EXPECT_EQ(m_statusItem->m_themeChanges, 1);
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
    struct Case
    {
        const char* name;
        qint64 secondsSinceSwitch; // negative: no switch
        bool panel;
        bool showOnActivate;
        bool expectWindow;
        bool expectFocusBack;
    };
    const Case cases[] = {
        {"echo of the switch", 1, false, true, false, true},
        {"switch long ago", 3, false, true, true, false},
        {"no switch", -1, false, true, true, false},
        {"panel on screen", -1, true, true, false, false},
        {"preference off", -1, false, false, false, false},
    };
    m_delegate->applicationDidFinishLaunching();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        m_session->m_activated.clear();
        m_session->m_panelVisible = c.panel;
        defaults().setBool(c.showOnActivate, MonitorDefaults::kShowActivityOnActivate);
        if (c.secondsSinceSwitch >= 0) {
            m_delegate->noteRegularAppPolicyChange(QStringLiteral("org.example.Editor"));
            m_now = m_now.addSecs(c.secondsSinceSwitch);
        }
        const int before = m_wakeUpCalls;
        m_delegate->applicationDidBecomeActive();
        EXPECT_EQ(m_wakeUpCalls - before, c.expectWindow ? 1 : 0);
        EXPECT_EQ(m_session->m_activated, c.expectFocusBack
                                              ? QStringList{QStringLiteral("org.example.Editor")}
                                              : QStringList());
    }
    defaults().removeObjectForKey(MonitorDefaults::kShowActivityOnActivate);
}

TEST_F(MonitorApplicationDelegateTest, ArchiveAndLogLineOpenInTheClient)
{
    FakeClientApplication client;
    m_delegate->openRepository(QStringLiteral("/media/disk/Home.stromi"), 7);
    const LogLine line = Logger::log(5, QStringLiteral("something to look at"));
    m_delegate->viewLogLine(line);
    ASSERT_EQ(client.m_actions.size(), 2);
    EXPECT_EQ(client.m_actions[0].first, QStringLiteral("open-archive"));
    EXPECT_EQ(client.m_actions[0].second.at(0).toString(),
              QStringLiteral("/media/disk/Home.stromi"));
    // The action travels as a 32-bit integer, as the client's action expects it.
    EXPECT_EQ(client.m_actions[0].second.at(1).metaType(), QMetaType::fromType<qint32>());
    EXPECT_EQ(client.m_actions[1].first, QStringLiteral("view-log"));
    EXPECT_EQ(client.m_actions[1].second.at(1).toString(), line->description());

    client.m_activateResult = ClientApplication::kRequestFailed;
    m_delegate->openRepository(QStringLiteral("/gone.stromi"), 1);
    Logger::defaultLogger()->flush();
    EXPECT_EQ(logLinesContaining(QStringLiteral("Unable to open '/gone.stromi'")), 1);
}

TEST_F(MonitorApplicationDelegateTest, QuitExitsCleanlyOnlyForSessionEnds)
{
    m_delegate->applicationDidFinishLaunching();
    EXPECT_EQ(m_delegate->applicationShouldTerminate(), MonitorApplicationDelegate::kAbnormalExit);
    EXPECT_FALSE(m_delegate->terminateCleanly());
    Logger::defaultLogger()->flush();
    EXPECT_EQ(logLinesContaining(QStringLiteral("will exit abnormally")), 1);

    m_session->m_quitReason = ApplicationSession::kLogOut;
    EXPECT_EQ(m_delegate->applicationShouldTerminate(), MonitorApplicationDelegate::kCleanExit);
    EXPECT_TRUE(m_delegate->terminateCleanly());
}

TEST_F(MonitorApplicationDelegateTest, UndecodablePreferenceFromAPeerLeavesTheSettingAlone)
{
    const QString key = QStringLiteral("KSTestSetting");
    MonitorServer server(m_delegate.get());
    ASSERT_TRUE(server.setComponentPreferenceValue(
        KeyedArchive::archivedData(QStringLiteral("kept")), key));
    EXPECT_FALSE(server.setComponentPreferenceValue(QByteArray("\xff\x00garbage", 9), key));
    EXPECT_EQ(m_delegate->componentPreferenceForKey(key).toString(), QStringLiteral("kept"));
    EXPECT_TRUE(server.setComponentPreferenceValue({}, key)) << "empty data is nil: removes";
    EXPECT_FALSE(m_delegate->componentPreferenceForKey(key).isValid());
}
} // namespace
