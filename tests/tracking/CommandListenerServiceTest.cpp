#include "tracking/CommandListenerService.h"

#include "RecordingDelegate.h"
#include "RecordingListener.h"
#include "RecordingLogger.h"

#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {
std::shared_ptr<RecordingListener> makeListener()
{
    return std::make_shared<RecordingListener>();
}
} // namespace

class CommandListenerServiceTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_log = RecordingLogger::install();
        m_service.setDelegate(&m_delegate);
    }

    void TearDown() override
    {
        m_service.setDelegate(nullptr);
        m_service.removeAllListeners();
        CommandListenerService::setCullInterval(CommandListenerService::kDefaultCullInterval);
        // Listeners released by the service go on a later turn of the main loop.
        QCoreApplication::processEvents();
        Logger::releaseDefaultLogger();
    }

    // Culls and waits until the answers of that many questions are back on the main thread.
    void cullAndSettle(int questions)
    {
        QSignalSpy answered(&m_service, &CommandListenerService::cullQuestionAnswered);
        m_service.cullTime();
        while (answered.size() < questions) {
            ASSERT_TRUE(answered.wait(30000));
        }
    }

    std::shared_ptr<RecordingLogger> m_log;
    RecordingDelegate m_delegate;
    CommandListenerService m_service;
};

TEST_F(CommandListenerServiceTest, TheFirstListenerUnderAnIdentifierWins)
{
    const auto first = makeListener();
    const auto second = makeListener();
    m_service.addListener(first, QStringLiteral("cmd-1"));
    m_service.addListener(second, QStringLiteral("cmd-1"));

    EXPECT_EQ(m_service.listenerForIdentifier(QStringLiteral("cmd-1")), first);
    EXPECT_EQ(first->added, 1);
    EXPECT_EQ(second->added, 0);
    EXPECT_EQ(second->listenerService(), nullptr);
    EXPECT_EQ(m_delegate.willAdd, QList<CommandListener*>{first.get()});
    EXPECT_EQ(first->listenerService(), &m_service);
}

TEST_F(CommandListenerServiceTest, AddingLogsTheListenerAndItsIdentifier)
{
    const auto listener = makeListener();
    m_service.addListener(listener, QStringLiteral("cmd-log"));

    const auto lines = m_log->linesContaining(QStringLiteral("added listener"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_EQ(lines.first().classification, 9);
    EXPECT_EQ(lines.first().message,
              QStringLiteral("-[CommandListenerService addListener:forCommandIdentifier:] added "
                             "listener <0x%1> for command identifier cmd-log")
                  .arg(quintptr(listener.get()), 0, 16));
}

TEST_F(CommandListenerServiceTest, TheCullTimerRunsExactlyWhileListenersAreRegistered)
{
    EXPECT_EQ(m_service.cullTimer(), nullptr);
    EXPECT_FALSE(m_service.activeListeners().has_value());

    const auto a = makeListener();
    const auto b = makeListener();
    m_service.addListener(a, QStringLiteral("a"));
    ASSERT_NE(m_service.cullTimer(), nullptr);
    EXPECT_TRUE(m_service.cullTimer()->isActive());
    EXPECT_EQ(m_service.cullTimer()->interval(), 121000);
    const QTimer* timer = m_service.cullTimer();
    m_service.addListener(b, QStringLiteral("b"));
    EXPECT_EQ(m_service.cullTimer(), timer) << "one timer for the whole registry";

    m_service.removeListener(a.get());
    EXPECT_NE(m_service.cullTimer(), nullptr);
    m_service.removeListener(b.get());
    EXPECT_EQ(m_service.cullTimer(), nullptr);
    EXPECT_FALSE(m_service.activeListeners().has_value());
}

TEST_F(CommandListenerServiceTest, RemovingAnUnregisteredListenerChangesNothing)
{
    const auto registered = makeListener();
    const auto stranger = makeListener();
    m_service.addListener(registered, QStringLiteral("known"));

    m_service.removeListener(stranger.get());

    EXPECT_TRUE(m_service.hasListenerForCommandIdentifier(QStringLiteral("known")));
    EXPECT_EQ(stranger->removed, 0);
    EXPECT_TRUE(m_delegate.didRemove.isEmpty());
    EXPECT_NE(m_service.cullTimer(), nullptr);
    EXPECT_TRUE(m_log->linesContaining(QStringLiteral("removed listener")).isEmpty());
}

TEST_F(CommandListenerServiceTest, RemovalIsByIdentityAndTellsListenerThenDelegate)
{
    const auto listener = makeListener();
    m_service.addListener(listener, QStringLiteral("one"));
    m_service.addListener(makeListener(), QStringLiteral("two"));

    m_service.removeListener(listener.get());

    EXPECT_FALSE(m_service.hasListenerForCommandIdentifier(QStringLiteral("one")));
    EXPECT_TRUE(m_service.hasListenerForCommandIdentifier(QStringLiteral("two")));
    EXPECT_EQ(listener->removed, 1);
    EXPECT_EQ(listener->listenerService(), nullptr);
    EXPECT_EQ(m_delegate.didRemove, QList<CommandListener*>{listener.get()});
    const auto lines = m_log->linesContaining(QStringLiteral("removed listener"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines.first().message.startsWith(
        QStringLiteral("-[CommandListenerService removeListener:] removed listener <0x")));
    EXPECT_TRUE(lines.first().message.endsWith(QStringLiteral("for command identifier one")));
}

TEST_F(CommandListenerServiceTest, RemovingAllNotifiesEveryListenerAndStopsTheTimer)
{
    const auto a = makeListener();
    const auto b = makeListener();
    m_service.addListener(a, QStringLiteral("a"));
    m_service.addListener(b, QStringLiteral("b"));

    m_service.removeAllListeners();

    EXPECT_TRUE(m_service.listeners().isEmpty());
    EXPECT_EQ(a->removed, 1);
    EXPECT_EQ(b->removed, 1);
    EXPECT_EQ(m_delegate.didRemove.size(), 2);
    EXPECT_EQ(m_service.cullTimer(), nullptr);
    EXPECT_FALSE(m_service.activeListeners().has_value());
}

TEST_F(CommandListenerServiceTest, TheDelegateMakesMissingListenersOnce)
{
    std::shared_ptr<CommandListener> made;
    QVariantMap seenInfo;
    m_delegate.factory = [&](const QString&, const QVariantMap& info) {
        seenInfo = info;
        made = makeListener();
        return made;
    };
    const QVariantMap info{{QStringLiteral("name"), QStringLiteral("capture")}};

    const auto first = m_service.listenerForCommandIdentifier(QStringLiteral("c-7"), info);
    const auto again = m_service.listenerForCommandIdentifier(QStringLiteral("c-7"), info);

    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, made);
    EXPECT_EQ(again, first);
    EXPECT_EQ(m_delegate.asked, QStringList{QStringLiteral("c-7")});
    EXPECT_EQ(seenInfo, info);
    EXPECT_TRUE(m_service.hasListenerForCommandIdentifier(QStringLiteral("c-7")));
}

TEST_F(CommandListenerServiceTest, ARefusingDelegateRegistersNothing)
{
    EXPECT_EQ(m_service.listenerForCommandIdentifier(QStringLiteral("none"), {}), nullptr);
    EXPECT_FALSE(m_service.hasListenerForCommandIdentifier(QStringLiteral("none")));
    EXPECT_EQ(m_service.cullTimer(), nullptr);

    m_service.setDelegate(nullptr);
    EXPECT_EQ(m_service.listenerForCommandIdentifier(QStringLiteral("none"), {}), nullptr);
}

TEST_F(CommandListenerServiceTest, AListenerAddedJustBeforeACullIsNotACandidate)
{
    const auto listener = makeListener();
    m_service.addListener(listener, QStringLiteral("fresh"));

    m_service.cullTime();
    QCoreApplication::processEvents();

    EXPECT_TRUE(m_log->linesContaining(QStringLiteral("culling dead listener")).isEmpty());
    EXPECT_EQ(listener->asked.load(), 0);
    EXPECT_TRUE(m_service.hasListenerForCommandIdentifier(QStringLiteral("fresh")));
}

TEST_F(CommandListenerServiceTest, ASilentListenerIsAskedOffTheMainThreadAndCulledOnYes)
{
    const auto listener = makeListener();
    m_service.addListener(listener, QStringLiteral("silent"));
    m_service.cullTime(); // the grace of the first cull

    QSignalSpy answered(&m_service, &CommandListenerService::cullQuestionAnswered);
    m_service.cullTime();
    EXPECT_TRUE(m_service.activeListeners()->isEmpty()) << "emptied before the questions run";
    ASSERT_TRUE(answered.wait(30000));

    EXPECT_EQ(answered.first().at(1).toBool(), true);
    EXPECT_EQ(listener->asked.load(), 1);
    EXPECT_FALSE(listener->askedOnMainThread.load());
    EXPECT_FALSE(m_service.hasListenerForCommandIdentifier(QStringLiteral("silent")));
    EXPECT_EQ(listener->removed, 1);
    const auto lines = m_log->linesContaining(QStringLiteral("culling dead listener"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_EQ(lines.first().classification, 9);
    EXPECT_EQ(lines.first().message,
              QStringLiteral("-[CommandListenerService cullTime:] culling dead listener for "
                             "command identifier silent"));
    EXPECT_EQ(m_service.cullTimer(), nullptr);
}

TEST_F(CommandListenerServiceTest, ASilentListenerThatIsNotFinishedIsKept)
{
    const auto listener = makeListener();
    listener->cullAnswer = false;
    m_service.addListener(listener, QStringLiteral("busy"));
    m_service.cullTime();
    cullAndSettle(1);

    EXPECT_EQ(listener->asked.load(), 1);
    EXPECT_TRUE(m_service.hasListenerForCommandIdentifier(QStringLiteral("busy")));
    EXPECT_EQ(listener->removed, 0);
    EXPECT_NE(m_service.cullTimer(), nullptr);

    // Still silent at the next cull: asked again.
    cullAndSettle(1);
    EXPECT_EQ(listener->asked.load(), 2);
}

TEST_F(CommandListenerServiceTest, ACommandReportingEveryIntervalIsNeverAsked)
{
    const auto listener = makeListener();
    m_service.addListener(listener, QStringLiteral("chatty"));
    for (int cull = 0; cull < 6; ++cull) {
        if (cull % 2 == 0) {
            listener->commandProgressDidUpdate({});
        } else {
            listener->commandDidStart();
        }
        m_service.cullTime();
    }
    QCoreApplication::processEvents();

    EXPECT_EQ(listener->asked.load(), 0);
    EXPECT_TRUE(m_log->linesContaining(QStringLiteral("culling dead listener")).isEmpty());
    EXPECT_TRUE(m_service.hasListenerForCommandIdentifier(QStringLiteral("chatty")));
}

TEST_F(CommandListenerServiceTest, TheTimerCallsTheCullAtTheInjectedInterval)
{
    CommandListenerService::setCullInterval(std::chrono::milliseconds(20));
    const auto listener = makeListener();
    m_service.addListener(listener, QStringLiteral("timed"));
    EXPECT_EQ(m_service.cullTimer()->interval(), 20);

    // No report ever: the second timed cull asks, and the answer removes it.
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return !m_service.hasListenerForCommandIdentifier(QStringLiteral("timed")); },
        30000));
    EXPECT_EQ(listener->asked.load(), 1);
}

TEST_F(CommandListenerServiceTest, TheServiceIdentifierBecomesTheSwitchboardName)
{
    EXPECT_EQ(m_service.serviceIdentifier(),
              QStringLiteral("CommandListenerService.%1").arg(uint(getpid())));
    EXPECT_FALSE(m_service.published());
    EXPECT_TRUE(m_service.switchboardName().isNull());

    m_service.setSwitchboardName(QStringLiteral("com.kestrom.monitor"));

    EXPECT_EQ(m_service.serviceIdentifier(), QStringLiteral("com.kestrom.monitor"));
    EXPECT_EQ(m_service.switchboardName(), QStringLiteral("com.kestrom.monitor"));
    EXPECT_TRUE(m_service.published());
}

TEST_F(CommandListenerServiceTest, TheSharedServiceIsOne)
{
    EXPECT_EQ(&CommandListenerService::sharedService(), &CommandListenerService::sharedService());
}
