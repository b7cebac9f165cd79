#include "tracking/CommandListenerService.h"

#include "RecordingLogger.h"
#include "exception/KSException.h"
#include "tracking/CommandListener.h"
#include "tracking/CommandListenerServiceDelegate.h"

#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <atomic>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
const QDateTime kEpoch = QDateTime(QDate(2024, 3, 1), QTime(10, 0), Qt::UTC);

CommandListener::ExceptionPtr failure(const QString& reason)
{
    return std::make_shared<KSException>(u"IO"_s, reason);
}

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
} // namespace

// Listeners in a service of their own, with a delegate that records, and time a number of
// seconds after a fixed date, moved by the test.
class CommandListenerServiceTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_log = RecordingLogger::install();
        m_service.setDelegate(&m_delegate);
        CommandListener::setClock([this] { return kEpoch.addMSecs(m_elapsedMs); });
    }

    void TearDown() override
    {
        m_service.setDelegate(nullptr);
        m_service.removeAllListeners();
        CommandListener::setClock({});
        CommandListenerService::setCullInterval(CommandListenerService::kDefaultCullInterval);
        // Listeners released by the service go on a later turn of the main loop.
        QCoreApplication::processEvents();
        Logger::releaseDefaultLogger();
    }

    std::shared_ptr<RecordingListener> added(const QString& identifier)
    {
        auto listener = std::make_shared<RecordingListener>();
        m_service.addListener(listener, identifier);
        return listener;
    }
    qsizetype lines(const QString& text) const { return m_log->linesContaining(text).size(); }
    void advance(double seconds) { m_elapsedMs += qint64(seconds * 1000); }

    std::shared_ptr<RecordingLogger> m_log;
    RecordingDelegate m_delegate;
    CommandListenerService m_service;
    qint64 m_elapsedMs = 0;
};

TEST_F(CommandListenerServiceTest, TheFirstUnderAnIdentifierWinsRemovalIsByIdentityAndTimed)
{
    EXPECT_EQ(m_service.cullTimer(), nullptr);
    const RecordingListener stranger;
    const auto first = added(u"cmd-1"_s);
    const auto second = added(u"cmd-1"_s);
    const auto two = added(u"two"_s);

    EXPECT_EQ(m_service.listenerForIdentifier(u"cmd-1"_s), first);
    EXPECT_EQ(std::pair(first->added, second->added), std::pair(1, 0));
    EXPECT_EQ(first->listenerService(), &m_service);
    EXPECT_EQ(m_delegate.willAdd, (QList<CommandListener*>{first.get(), two.get()}));
    const QString firstAddress = QString::number(quintptr(first.get()), 16);
    EXPECT_EQ(m_log->classesOf(u"added listener"_s), (QList<int>{9, 9}));
    EXPECT_EQ(m_log->messagesContaining(u"identifier cmd-1"_s),
              QStringList{u"-[CommandListenerService addListener:forCommandIdentifier:] added "
                          "listener <0x"_s +
                          firstAddress + u"> for command identifier cmd-1"_s});
    ASSERT_NE(m_service.cullTimer(), nullptr);
    EXPECT_TRUE(m_service.cullTimer()->isActive());
    EXPECT_EQ(m_service.cullTimer()->interval(), 121000);
    EXPECT_EQ(m_service.cullTimer()->timerType(), Qt::PreciseTimer) << "never early";

    m_service.removeListener(&stranger);
    EXPECT_TRUE(m_delegate.didRemove.isEmpty()) << "a stranger changes nothing";
    EXPECT_EQ(lines(u"removed listener"_s), 0);

    m_service.removeListener(first.get());
    EXPECT_FALSE(m_service.hasListenerForCommandIdentifier(u"cmd-1"_s));
    EXPECT_EQ(first->removed, 1);
    EXPECT_EQ(first->listenerService(), nullptr);
    EXPECT_EQ(m_delegate.didRemove, QList<CommandListener*>{first.get()});
    EXPECT_EQ(m_log->messagesContaining(u"removed listener"_s),
              QStringList{u"-[CommandListenerService removeListener:] removed listener <0x"_s +
                          firstAddress + u"> for command identifier cmd-1"_s});
    EXPECT_NE(m_service.cullTimer(), nullptr);

    m_service.removeAllListeners();
    EXPECT_EQ(two->removed, 1);
    EXPECT_EQ(m_delegate.didRemove.size(), 2);
    EXPECT_EQ(m_service.cullTimer(), nullptr);
    EXPECT_FALSE(m_service.activeListeners().has_value());

    added(u"three"_s);
    m_service.removeAllListeners();
    m_service.removeListener(&stranger); // a stranger, to an empty registry
    EXPECT_EQ(m_service.cullTimer(), nullptr);
    EXPECT_EQ(lines(u"removed listener"_s), 1);
}

TEST_F(CommandListenerServiceTest, TheDelegateMakesMissingListenersOnceAndTheNameCanBeSet)
{
    EXPECT_EQ(m_service.serviceIdentifier(), u"CommandListenerService.%1"_s.arg(uint(getpid())));
    EXPECT_FALSE(m_service.published());
    m_service.setSwitchboardName(u"com.kestrom.monitor"_s);
    EXPECT_EQ(m_service.serviceIdentifier(), u"com.kestrom.monitor"_s);
    EXPECT_TRUE(m_service.published());

    EXPECT_EQ(m_service.listenerForCommandIdentifier(u"none"_s, {}), nullptr);
    EXPECT_FALSE(m_service.hasListenerForCommandIdentifier(u"none"_s));
    m_delegate.makes = true;
    const QVariantMap info{{u"name"_s, u"capture"_s}};
    const auto first = m_service.listenerForCommandIdentifier(u"c-7"_s, info);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(m_service.listenerForCommandIdentifier(u"c-7"_s, info), first);
    EXPECT_EQ(m_delegate.asked, (QStringList{u"none"_s, u"c-7"_s}));
    EXPECT_EQ(m_delegate.seenInfo, info);
    EXPECT_TRUE(m_service.hasListenerForCommandIdentifier(u"c-7"_s));
}

// A listener whose command reported since the last cull is never asked; a silent one is asked,
// off the main thread, from the second cull on: the first is a grace.
TEST_F(CommandListenerServiceTest, OnlyASilentListenerIsAskedOffTheMainThreadAfterAGraceCull)
{
    const auto chatty = added(u"chatty"_s);
    for (int cull = 0; cull < 6; ++cull) {
        if (cull % 2 == 0) {
            chatty->commandProgressDidUpdate({});
        } else {
            chatty->commandDidStart();
        }
        m_service.cullTime();
    }
    QCoreApplication::processEvents();
    EXPECT_EQ(chatty->asked.load(), 0);
    EXPECT_TRUE(m_service.hasListenerForCommandIdentifier(u"chatty"_s));
    m_service.removeListener(chatty.get());

    const auto busy = added(u"busy"_s);
    busy->cullAnswer = false;
    m_service.cullTime();
    QCoreApplication::processEvents();
    EXPECT_EQ(busy->asked.load(), 0);
    QSignalSpy answered(&m_service, &CommandListenerService::cullQuestionAnswered);
    m_service.cullTime();
    ASSERT_TRUE(answered.wait(30000));
    EXPECT_EQ(busy->asked.load(), 1);
    EXPECT_FALSE(busy->askedOnMainThread.load());
    EXPECT_TRUE(m_service.hasListenerForCommandIdentifier(u"busy"_s));
    const qsizetype before = lines(u"culling dead listener"_s);

    busy->cullAnswer = true;
    m_service.cullTime();
    EXPECT_TRUE(m_service.activeListeners()->isEmpty()) << "emptied before the questions run";
    ASSERT_TRUE(answered.wait(30000));
    EXPECT_EQ(answered.last().at(1).toBool(), true);
    EXPECT_FALSE(m_service.hasListenerForCommandIdentifier(u"busy"_s));
    EXPECT_EQ(busy->removed, 1);
    const auto culled = m_log->linesContaining(u"culling dead listener"_s);
    ASSERT_EQ(culled.size(), before + 1);
    EXPECT_EQ(culled.last().classification, 9);
    EXPECT_EQ(culled.last().message, u"-[CommandListenerService cullTime:] culling dead listener "
                                     "for command identifier busy"_s);
    EXPECT_EQ(m_service.cullTimer(), nullptr);
}

TEST_F(CommandListenerServiceTest, TheTimerCallsTheCullAtTheInjectedInterval)
{
    CommandListenerService::setCullInterval(std::chrono::milliseconds(20));
    const auto timed = added(u"timed"_s);
    // No report ever: the second timed cull asks, and the answer removes it.
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return !m_service.hasListenerForCommandIdentifier(u"timed"_s); }, 30000));
    EXPECT_EQ(timed->asked.load(), 1);
}

// Every failed stop is logged with its details, a successful one is not.
TEST_F(CommandListenerServiceTest, RunTimeGrowsFromTheFirstStartToTheFirstStopAndFailedStopsLog)
{
    CommandListener listener;
    QSignalSpy started(&listener, &CommandListener::startedChanged);
    QSignalSpy running(&listener, &CommandListener::commandIsRunningChanged);
    QSignalSpy stopped(&listener, &CommandListener::stoppedChanged);
    advance(3);
    EXPECT_EQ(listener.runTime(), 0.0) << "never started";

    listener.commandDidStart();
    advance(2.5);
    EXPECT_DOUBLE_EQ(listener.runTime(), 2.5);
    listener.commandDidStart();
    advance(10);
    EXPECT_DOUBLE_EQ(listener.property("runTime").toDouble(), 12.5);
    EXPECT_EQ(listener.startTime(), kEpoch.addSecs(3)) << "the first start is kept";
    EXPECT_TRUE(listener.property("commandIsRunning").toBool());

    listener.commandDidStopWithException(failure(u"first"_s));
    advance(100);
    const auto second = failure(u"second"_s);
    listener.commandDidStopWithException(second);
    EXPECT_DOUBLE_EQ(listener.runTime(), 12.5);
    EXPECT_EQ(listener.stopTime(), kEpoch.addMSecs(15500));
    EXPECT_EQ(listener.exception(), second) << "the last exception is kept";
    EXPECT_EQ(started.size(), 1);
    EXPECT_EQ(stopped.size(), 1);
    ASSERT_EQ(running.size(), 2);
    EXPECT_FALSE(running.last().first().toBool());
    listener.commandDidStopWithException(nullptr);
    EXPECT_EQ(listener.exception(), nullptr) << "a later success clears the failure";

    // A stop before any start does not announce running, and a later start clears the failure.
    CommandListener early;
    QSignalSpy earlyRunning(&early, &CommandListener::commandIsRunningChanged);
    early.commandDidStopWithException(nullptr);
    early.commandDidStopWithException(failure(u"disk went away"_s));
    early.commandDidStart();
    EXPECT_TRUE(early.hasStopped());
    EXPECT_FALSE(early.commandIsRunning());
    EXPECT_EQ(earlyRunning.size(), 0);
    EXPECT_EQ(early.exception(), nullptr);
    ASSERT_EQ(m_log->classesOf(u"command returned exception"_s), (QList<int>{9, 9, 9}));
    const auto logged = m_log->linesContaining(u"command returned exception"_s);
    EXPECT_FALSE(m_log->linesContaining(u"disk went away"_s, logged.last().line).isEmpty());
}

TEST_F(CommandListenerServiceTest, AListenerReleasedByItsOwnStopLivesToTheEndOfTheCall)
{
    // The registry holds the only reference: the stop removes it while the stop still runs.
    auto listener = std::make_shared<CommandListener>();
    const std::weak_ptr<CommandListener> weak = listener;
    m_service.addListener(listener, u"alone"_s);
    CommandListener* raw = listener.get();
    listener.reset();

    raw->commandDidStopWithException(failure(u"last words"_s));
    EXPECT_FALSE(weak.expired());
    EXPECT_EQ(raw->exception()->reason(), u"last words"_s);
    EXPECT_FALSE(m_service.hasListenerForCommandIdentifier(u"alone"_s));
    EXPECT_EQ(m_service.cullTimer(), nullptr);

    QCoreApplication::processEvents();
    EXPECT_TRUE(weak.expired());
}
