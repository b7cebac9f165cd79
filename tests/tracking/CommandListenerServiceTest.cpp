#include "tracking/CommandListenerService.h"

#include "RecordingLogger.h"
#include "tracking/CommandListener.h"
#include "tracking/CommandListenerServiceDelegate.h"

#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <atomic>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {
// A listener that counts what the service tells it and answers the cull question as told.
class RecordingListener : public CommandListener
{
public:
    void willBeAddedToService(CommandListenerService* service) override
    {
        ++added;
        CommandListener::willBeAddedToService(service);
    }
    void wasRemovedFromService(CommandListenerService* service) override
    {
        ++removed;
        CommandListener::wasRemovedFromService(service);
    }
    bool shouldBeCulledFromService(CommandListenerService* /*service*/) override
    {
        askedOnMainThread = QThread::currentThread() == thread();
        ++asked;
        return cullAnswer.load();
    }

    int added = 0;
    int removed = 0;
    std::atomic<int> asked{0};
    std::atomic<bool> askedOnMainThread{false};
    std::atomic<bool> cullAnswer{true};
};

// A delegate that makes listeners on request and keeps what it was told.
class RecordingDelegate : public CommandListenerServiceDelegate
{
public:
    std::shared_ptr<CommandListener> listenerForCommandIdentifier(const QString& identifier,
                                                                  const QVariantMap& info) override
    {
        asked.append(identifier);
        seenInfo = info;
        return makes ? std::make_shared<RecordingListener>() : nullptr;
    }
    void willAddListener(CommandListener* listener) override { willAdd.append(listener); }
    void didRemoveListener(CommandListener* listener) override { didRemove.append(listener); }

    bool makes = false;
    QStringList asked;
    QVariantMap seenInfo;
    QList<CommandListener*> willAdd;
    QList<CommandListener*> didRemove;
};

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

    // Culls and waits until the answer of the one question is back on the main thread.
    void cullAndSettle()
    {
        QSignalSpy answered(&m_service, &CommandListenerService::cullQuestionAnswered);
        m_service.cullTime();
        ASSERT_TRUE(answered.wait(30000));
    }

    qsizetype lines(const QString& text) const { return m_log->linesContaining(text).size(); }

    std::shared_ptr<RecordingLogger> m_log;
    RecordingDelegate m_delegate;
    CommandListenerService m_service;
};

TEST_F(CommandListenerServiceTest, TheFirstListenerUnderAnIdentifierWinsAndIsLogged)
{
    const auto first = makeListener();
    const auto second = makeListener();
    m_service.addListener(first, QStringLiteral("cmd-1"));
    m_service.addListener(second, QStringLiteral("cmd-1"));

    EXPECT_EQ(m_service.listenerForIdentifier(QStringLiteral("cmd-1")), first);
    EXPECT_EQ(first->added, 1);
    EXPECT_EQ(second->added, 0);
    EXPECT_EQ(second->listenerService(), nullptr);
    EXPECT_EQ(first->listenerService(), &m_service);
    EXPECT_EQ(m_delegate.willAdd, QList<CommandListener*>{first.get()});
    const auto added = m_log->linesContaining(QStringLiteral("added listener"));
    ASSERT_EQ(added.size(), 1);
    EXPECT_EQ(added.first().classification, 9);
    EXPECT_EQ(added.first().message,
              QStringLiteral("-[CommandListenerService addListener:forCommandIdentifier:] added "
                             "listener <0x%1> for command identifier cmd-1")
                  .arg(quintptr(first.get()), 0, 16));
}

TEST_F(CommandListenerServiceTest, RemovalIsByIdentityAndTheTimerRunsOnlyWhileListenersAre)
{
    EXPECT_EQ(m_service.cullTimer(), nullptr);
    const auto one = makeListener();
    const auto two = makeListener();
    m_service.addListener(one, QStringLiteral("one"));
    m_service.addListener(two, QStringLiteral("two"));
    ASSERT_NE(m_service.cullTimer(), nullptr);
    EXPECT_TRUE(m_service.cullTimer()->isActive());
    EXPECT_EQ(m_service.cullTimer()->interval(), 121000);

    m_service.removeListener(makeListener().get());
    EXPECT_TRUE(m_delegate.didRemove.isEmpty()) << "a stranger changes nothing";
    EXPECT_EQ(lines(QStringLiteral("removed listener")), 0);

    m_service.removeListener(one.get());
    EXPECT_FALSE(m_service.hasListenerForCommandIdentifier(QStringLiteral("one")));
    EXPECT_TRUE(m_service.hasListenerForCommandIdentifier(QStringLiteral("two")));
    EXPECT_EQ(one->removed, 1);
    EXPECT_EQ(one->listenerService(), nullptr);
    EXPECT_EQ(m_delegate.didRemove, QList<CommandListener*>{one.get()});
    const auto removed = m_log->linesContaining(QStringLiteral("removed listener"));
    ASSERT_EQ(removed.size(), 1);
    EXPECT_TRUE(removed.first().message.startsWith(
        QStringLiteral("-[CommandListenerService removeListener:] removed listener <0x")));
    EXPECT_TRUE(removed.first().message.endsWith(QStringLiteral("for command identifier one")));
    EXPECT_NE(m_service.cullTimer(), nullptr);

    m_service.removeAllListeners();
    EXPECT_EQ(two->removed, 1);
    EXPECT_EQ(m_delegate.didRemove.size(), 2);
    EXPECT_EQ(m_service.cullTimer(), nullptr);
    EXPECT_FALSE(m_service.activeListeners().has_value());
}

TEST_F(CommandListenerServiceTest, TheDelegateMakesMissingListenersOnce)
{
    EXPECT_EQ(m_service.listenerForCommandIdentifier(QStringLiteral("none"), {}), nullptr);
    EXPECT_FALSE(m_service.hasListenerForCommandIdentifier(QStringLiteral("none")));
    m_delegate.makes = true;
    const QVariantMap info{{QStringLiteral("name"), QStringLiteral("capture")}};

    const auto first = m_service.listenerForCommandIdentifier(QStringLiteral("c-7"), info);
    const auto again = m_service.listenerForCommandIdentifier(QStringLiteral("c-7"), info);

    ASSERT_NE(first, nullptr);
    EXPECT_EQ(again, first);
    EXPECT_EQ(m_delegate.asked, (QStringList{QStringLiteral("none"), QStringLiteral("c-7")}));
    EXPECT_EQ(m_delegate.seenInfo, info);
    EXPECT_TRUE(m_service.hasListenerForCommandIdentifier(QStringLiteral("c-7")));
}

TEST_F(CommandListenerServiceTest, ASilentListenerIsAskedOffTheMainThreadAfterAGraceCull)
{
    const auto busy = makeListener();
    busy->cullAnswer = false;
    m_service.addListener(busy, QStringLiteral("busy"));
    m_service.cullTime(); // the grace of the first cull
    QCoreApplication::processEvents();
    EXPECT_EQ(busy->asked.load(), 0);

    cullAndSettle();
    EXPECT_EQ(busy->asked.load(), 1);
    EXPECT_FALSE(busy->askedOnMainThread.load());
    EXPECT_TRUE(m_service.hasListenerForCommandIdentifier(QStringLiteral("busy")));
    const qsizetype before = lines(QStringLiteral("culling dead listener"));

    busy->cullAnswer = true;
    QSignalSpy answered(&m_service, &CommandListenerService::cullQuestionAnswered);
    m_service.cullTime();
    EXPECT_TRUE(m_service.activeListeners()->isEmpty()) << "emptied before the questions run";
    ASSERT_TRUE(answered.wait(30000));
    EXPECT_EQ(answered.first().at(1).toBool(), true);
    EXPECT_FALSE(m_service.hasListenerForCommandIdentifier(QStringLiteral("busy")));
    EXPECT_EQ(busy->removed, 1);
    const auto culled = m_log->linesContaining(QStringLiteral("culling dead listener"));
    ASSERT_EQ(culled.size(), before + 1);
    EXPECT_EQ(culled.last().classification, 9);
    EXPECT_EQ(culled.last().message,
              QStringLiteral("-[CommandListenerService cullTime:] culling dead listener for "
                             "command identifier busy"));
    EXPECT_EQ(m_service.cullTimer(), nullptr);
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

    m_service.setSwitchboardName(QStringLiteral("com.kestrom.monitor"));

    EXPECT_EQ(m_service.serviceIdentifier(), QStringLiteral("com.kestrom.monitor"));
    EXPECT_TRUE(m_service.published());
}
