#include "tracking/CommandListener.h"

#include "RecordingLogger.h"
#include "errors/KSException.h"
#include "tracking/CommandListenerService.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

namespace {
const QDateTime kEpoch = QDateTime(QDate(2024, 3, 1), QTime(10, 0), Qt::UTC);

CommandListener::ExceptionPtr failure(const QString& reason)
{
    return std::make_shared<KSException>(QStringLiteral("IO"), reason);
}
} // namespace

// Time is a number of seconds after a fixed date, moved by the test.
class CommandListenerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_log = RecordingLogger::install();
        CommandListener::setClock([this] { return kEpoch.addMSecs(m_elapsedMs); });
    }

    void TearDown() override
    {
        m_service.removeAllListeners();
        CommandListener::setClock({});
        QCoreApplication::processEvents();
        Logger::releaseDefaultLogger();
    }

    void advance(double seconds) { m_elapsedMs += qint64(seconds * 1000); }

    std::shared_ptr<RecordingLogger> m_log;
    CommandListenerService m_service;
    qint64 m_elapsedMs = 0;
};

TEST_F(CommandListenerTest, ANewListenerHasNotStarted)
{
    CommandListener listener;
    EXPECT_FALSE(listener.hasStarted());
    EXPECT_FALSE(listener.hasStopped());
    EXPECT_FALSE(listener.commandIsRunning());
    EXPECT_EQ(listener.runTime(), 0.0);
    EXPECT_EQ(listener.exception(), nullptr);
    EXPECT_EQ(listener.roles(), 1U);
    EXPECT_EQ(listener.property("roles").toUInt(), 1U);
}

TEST_F(CommandListenerTest, RunTimeGrowsWithTheClockAndStopsAtTheStop)
{
    CommandListener listener;
    advance(3);
    EXPECT_EQ(listener.runTime(), 0.0) << "never started";

    listener.commandDidStart();
    EXPECT_EQ(listener.startTime(), kEpoch.addSecs(3));
    advance(2.5);
    EXPECT_DOUBLE_EQ(listener.runTime(), 2.5);
    advance(10);
    EXPECT_DOUBLE_EQ(listener.property("runTime").toDouble(), 12.5);

    listener.commandDidStopWithException(nullptr);
    advance(100);
    EXPECT_DOUBLE_EQ(listener.runTime(), 12.5);
}

TEST_F(CommandListenerTest, StartIsAnnouncedOnceAndOnlyOnRealChange)
{
    CommandListener listener;
    QSignalSpy started(&listener, &CommandListener::startedChanged);
    QSignalSpy startTime(&listener, &CommandListener::startTimeChanged);
    QSignalSpy running(&listener, &CommandListener::commandIsRunningChanged);

    listener.commandDidStart();
    advance(5);
    listener.commandDidStart();

    EXPECT_EQ(started.size(), 1);
    EXPECT_EQ(startTime.size(), 1);
    ASSERT_EQ(running.size(), 1);
    EXPECT_TRUE(running.first().first().toBool());
    EXPECT_EQ(listener.startTime(), kEpoch) << "the first start is kept";
    EXPECT_TRUE(listener.property("commandIsRunning").toBool());
}

TEST_F(CommandListenerTest, StoppingTwiceKeepsTheFirstTimeButTheSecondException)
{
    CommandListener listener;
    listener.commandDidStart();
    QSignalSpy stopped(&listener, &CommandListener::stoppedChanged);
    QSignalSpy stopTime(&listener, &CommandListener::stopTimeChanged);
    QSignalSpy running(&listener, &CommandListener::commandIsRunningChanged);

    advance(4);
    listener.commandDidStopWithException(failure(QStringLiteral("first")));
    const QDateTime firstStop = listener.stopTime();
    advance(7);
    const auto second = failure(QStringLiteral("second"));
    listener.commandDidStopWithException(second);

    EXPECT_EQ(listener.stopTime(), firstStop);
    EXPECT_EQ(firstStop, kEpoch.addSecs(4));
    EXPECT_EQ(listener.exception(), second);
    EXPECT_EQ(stopped.size(), 1);
    EXPECT_EQ(stopTime.size(), 1);
    ASSERT_EQ(running.size(), 1);
    EXPECT_FALSE(running.first().first().toBool());

    // A later success clears the stored failure.
    listener.commandDidStopWithException(nullptr);
    EXPECT_EQ(listener.exception(), nullptr);
}

TEST_F(CommandListenerTest, AStopBeforeAnyStartDoesNotAnnounceRunningChanges)
{
    CommandListener listener;
    QSignalSpy running(&listener, &CommandListener::commandIsRunningChanged);
    listener.commandDidStopWithException(nullptr);
    listener.commandDidStart();
    EXPECT_TRUE(listener.hasStarted());
    EXPECT_TRUE(listener.hasStopped());
    EXPECT_FALSE(listener.commandIsRunning());
    EXPECT_EQ(running.size(), 0);
}

TEST_F(CommandListenerTest, AFailedStopIsLoggedWithItsDetails)
{
    CommandListener listener;
    listener.commandDidStopWithException(failure(QStringLiteral("disk went away")));

    const auto lines = m_log->linesContaining(QStringLiteral("command returned exception"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_EQ(lines.first().classification, 9);
    const auto details = m_log->childrenOf(lines.first().line);
    EXPECT_TRUE(std::any_of(details.cbegin(), details.cend(), [](const auto& line) {
        return line.message.contains(QStringLiteral("disk went away"));
    }));
}

TEST_F(CommandListenerTest, ASuccessfulStopLogsNothing)
{
    CommandListener listener;
    listener.commandDidStopWithException(nullptr);
    EXPECT_TRUE(m_log->linesContaining(QStringLiteral("command returned exception")).isEmpty());
}

TEST_F(CommandListenerTest, AStartClearsAnEarlierException)
{
    CommandListener listener;
    listener.commandDidStopWithException(failure(QStringLiteral("early")));
    listener.commandDidStart();
    EXPECT_EQ(listener.exception(), nullptr);
}

TEST_F(CommandListenerTest, TheStopTakesTheListenerOutOfItsService)
{
    const auto listener = std::make_shared<CommandListener>();
    m_service.addListener(listener, QStringLiteral("stopping"));
    listener->commandDidStart();

    listener->commandDidStopWithException(nullptr);

    EXPECT_FALSE(m_service.hasListenerForCommandIdentifier(QStringLiteral("stopping")));
    EXPECT_EQ(listener->listenerService(), nullptr);
    EXPECT_EQ(m_service.cullTimer(), nullptr);
}

TEST_F(CommandListenerTest, AListenerReleasedByItsOwnStopLivesToTheEndOfTheCall)
{
    // The registry holds the only reference: the stop removes it while the stop still runs.
    auto listener = std::make_shared<CommandListener>();
    const std::weak_ptr<CommandListener> weak = listener;
    m_service.addListener(listener, QStringLiteral("alone"));
    CommandListener* raw = listener.get();
    listener.reset();

    raw->commandDidStopWithException(failure(QStringLiteral("last words")));
    EXPECT_FALSE(weak.expired());
    EXPECT_EQ(raw->exception()->reason(), QStringLiteral("last words"));

    QCoreApplication::processEvents();
    EXPECT_TRUE(weak.expired());
}

TEST_F(CommandListenerTest, DisconnectStopsListening)
{
    const auto listener = std::make_shared<CommandListener>();
    m_service.addListener(listener, QStringLiteral("gone"));
    listener->disconnect();
    EXPECT_FALSE(m_service.hasListenerForCommandIdentifier(QStringLiteral("gone")));
}

TEST_F(CommandListenerTest, ProgressAndStartMarkTheListenerActive)
{
    const auto listener = std::make_shared<CommandListener>();
    m_service.addListener(listener, QStringLiteral("marks"));
    m_service.cullTime();
    ASSERT_FALSE(m_service.activeListeners()->contains(listener.get()));

    listener->commandProgressDidUpdate({{QStringLiteral("task"), QStringLiteral("x")}});
    EXPECT_TRUE(m_service.activeListeners()->contains(listener.get()));

    m_service.cullTime();
    QCoreApplication::processEvents();
    listener->commandDidStart();
    EXPECT_TRUE(m_service.activeListeners()->contains(listener.get()));
}
