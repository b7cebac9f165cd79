#include "tracking/CommandListener.h"

#include "RecordingLogger.h"
#include "exception/KSException.h"
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

TEST_F(CommandListenerTest, RunTimeGrowsWithTheClockFromTheFirstStartToTheFirstStop)
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

    listener.commandDidStopWithException(failure(QStringLiteral("first")));
    advance(100);
    const auto second = failure(QStringLiteral("second"));
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
}

TEST_F(CommandListenerTest, AStopBeforeAnyStartDoesNotAnnounceRunningAndTheStartClearsIt)
{
    CommandListener listener;
    QSignalSpy running(&listener, &CommandListener::commandIsRunningChanged);
    listener.commandDidStopWithException(failure(QStringLiteral("early")));
    listener.commandDidStart();
    EXPECT_TRUE(listener.hasStopped());
    EXPECT_FALSE(listener.commandIsRunning());
    EXPECT_EQ(running.size(), 0);
    EXPECT_EQ(listener.exception(), nullptr);
}

TEST_F(CommandListenerTest, AFailedStopIsLoggedWithItsDetailsAndASuccessIsNot)
{
    CommandListener listener;
    listener.commandDidStopWithException(nullptr);
    EXPECT_TRUE(m_log->linesContaining(QStringLiteral("command returned exception")).isEmpty());
    listener.commandDidStopWithException(failure(QStringLiteral("disk went away")));

    const auto lines = m_log->linesContaining(QStringLiteral("command returned exception"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_EQ(lines.first().classification, 9);
    const auto details = m_log->childrenOf(lines.first().line);
    EXPECT_TRUE(std::any_of(details.cbegin(), details.cend(), [](const auto& line) {
        return line.message.contains(QStringLiteral("disk went away"));
    }));
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
    EXPECT_FALSE(m_service.hasListenerForCommandIdentifier(QStringLiteral("alone")));
    EXPECT_EQ(m_service.cullTimer(), nullptr);

    QCoreApplication::processEvents();
    EXPECT_TRUE(weak.expired());
}

TEST_F(CommandListenerTest, DisconnectStopsListeningAndReportsMarkTheListenerActive)
{
    const auto listener = std::make_shared<CommandListener>();
    const auto gone = std::make_shared<CommandListener>();
    m_service.addListener(listener, QStringLiteral("marks"));
    m_service.addListener(gone, QStringLiteral("gone"));
    gone->disconnect();
    EXPECT_FALSE(m_service.hasListenerForCommandIdentifier(QStringLiteral("gone")));
    m_service.cullTime();
    ASSERT_FALSE(m_service.activeListeners()->contains(listener.get()));

    listener->commandProgressDidUpdate({{QStringLiteral("task"), QStringLiteral("x")}});
    EXPECT_TRUE(m_service.activeListeners()->contains(listener.get()));
    m_service.cullTime();
    QCoreApplication::processEvents();
    listener->commandDidStart();
    EXPECT_TRUE(m_service.activeListeners()->contains(listener.get()));
}
