#include "tracking/CommandManager.h"

#include "FakeCommand.h"
#include "PeerBus.h"
#include "RecordingLogger.h"
#include "errors/KSException.h"
#include "messaging/MessagingThread.h"
#include "tracking/CommandListenerService.h"
#include "tracking/CommandOnXPCConnection.h"

#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

namespace {
const QString kMonitorName = QStringLiteral("com.kestrom.monitor");
} // namespace

// A manager connected the way the monitor connects one: through the shared service, to a
// command played by a peer connection of this process.
class CommandManagerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(MessagingThread::instance().connection().isConnected())
            << "no session bus: run the tests through scripts/headless";
        ASSERT_TRUE(m_peer.isConnected());
        m_log = RecordingLogger::install();
        service().setSwitchboardName(kMonitorName);
        m_command = new FakeCommand(QStringLiteral("capture"));
        m_endpoint = m_peer.serve(m_command, QStringLiteral("/test/capture"));
    }

    void TearDown() override
    {
        service().removeAllListeners();
        QCoreApplication::processEvents();
        Logger::releaseDefaultLogger();
    }

    static CommandListenerService& service() { return CommandListenerService::sharedService(); }

    std::shared_ptr<CommandManager> connectedManager(const QString& identifier)
    {
        auto manager = std::make_shared<CommandManager>();
        manager->connectToCommand(std::make_shared<CommandOnXPCConnection>(
            QStringLiteral("capture"), m_endpoint, identifier));
        return manager;
    }

    std::shared_ptr<CommandManager> deadManager(const QString& identifier)
    {
        auto manager = std::make_shared<CommandManager>();
        auto connection = std::make_shared<CommandOnXPCConnection>(QStringLiteral("capture"),
                                                                   m_peer.nowhere(), identifier);
        connection->setTolerance(0);
        // Registered before the command is told, so the failure to tell it leaves a
        // registered manager with its connection.
        EXPECT_THROW(manager->connectToCommand(connection), KSException);
        return manager;
    }

    PeerBus m_peer{QStringLiteral("peer-manager")};
    std::shared_ptr<RecordingLogger> m_log;
    FakeCommand* m_command = nullptr;
    Endpoint m_endpoint;
};

TEST_F(CommandManagerTest, ConnectingRegistersTheManagerAndTellsTheCommand)
{
    const auto manager = connectedManager(QStringLiteral("cap-1"));

    EXPECT_EQ(service().listenerForIdentifier(QStringLiteral("cap-1")), manager);
    EXPECT_EQ(manager->listenerService(), &service());
    EXPECT_EQ(m_command->calls(),
              QStringList{QStringLiteral("addListenerToPublishedService:") + kMonitorName});
    EXPECT_EQ(manager->connection()->listenerIdentifier(), kMonitorName);
}

TEST_F(CommandManagerTest, RunAndStopReachTheCommand)
{
    const auto manager = connectedManager(QStringLiteral("cap-2"));

    manager->runCommand();
    manager->stopCommand();

    const QStringList calls = m_command->calls();
    ASSERT_EQ(calls.size(), 3);
    EXPECT_EQ(calls.at(1), QStringLiteral("run"));
    EXPECT_EQ(calls.at(2), QStringLiteral("cancelFrom:1"));
    EXPECT_TRUE(service().hasListenerForCommandIdentifier(QStringLiteral("cap-2")));
}

TEST_F(CommandManagerTest, DisconnectingForgetsTheListenerOnBothSides)
{
    const auto manager = connectedManager(QStringLiteral("cap-3"));

    manager->disconnect();

    EXPECT_FALSE(service().hasListenerForCommandIdentifier(QStringLiteral("cap-3")));
    ASSERT_TRUE(QTest::qWaitFor([&] { return m_command->calls().size() == 2; }, 30000));
    EXPECT_EQ(m_command->calls().last(),
              QStringLiteral("removeListenerWithIdentifier:") + kMonitorName);
}

TEST_F(CommandManagerTest, ABusyCommandIsNotCulledAndAFinishedOneIs)
{
    const auto manager = connectedManager(QStringLiteral("cap-4"));

    m_command->finished = false;
    EXPECT_FALSE(manager->shouldBeCulledFromService(&service()));
    m_command->finished = true;
    EXPECT_TRUE(manager->shouldBeCulledFromService(&service()));
    EXPECT_EQ(m_command->calls().count(QStringLiteral("queryIsFinishedWithReply")), 2);
}

TEST_F(CommandManagerTest, TheCullAsksTheCommandInTheBackground)
{
    const auto manager = connectedManager(QStringLiteral("cap-5"));
    m_command->finished = false;
    QSignalSpy answered(&service(), &CommandListenerService::cullQuestionAnswered);

    service().cullTime(); // the grace of the first cull
    service().cullTime();
    ASSERT_TRUE(answered.wait(30000));
    EXPECT_FALSE(answered.first().at(1).toBool());
    EXPECT_TRUE(service().hasListenerForCommandIdentifier(QStringLiteral("cap-5")));

    m_command->finished = true;
    service().cullTime();
    ASSERT_TRUE(answered.wait(30000));
    EXPECT_TRUE(answered.last().at(1).toBool());
    EXPECT_FALSE(service().hasListenerForCommandIdentifier(QStringLiteral("cap-5")));
}

TEST_F(CommandManagerTest, AnUnreachableCommandIsCulledWithALogLine)
{
    const auto manager = deadManager(QStringLiteral("cap-dead"));
    ASSERT_TRUE(service().hasListenerForCommandIdentifier(QStringLiteral("cap-dead")));

    EXPECT_TRUE(manager->shouldBeCulledFromService(&service()));

    const auto lines = m_log->linesContaining(QStringLiteral("failed to query listener"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_EQ(lines.first().classification, 9);
    EXPECT_TRUE(lines.first().message.startsWith(
        QStringLiteral("-[CommandManager shouldBeCulledFromService:] failed to query listener: ")));
}

TEST_F(CommandManagerTest, AFailedStopIsLoggedAndDisconnects)
{
    const auto manager = deadManager(QStringLiteral("cap-stop"));

    manager->stopCommand();

    const auto lines =
        m_log->linesContaining(QStringLiteral("Unable to send stop request to command"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_EQ(lines.first().classification, 3);
    EXPECT_FALSE(service().hasListenerForCommandIdentifier(QStringLiteral("cap-stop")));
}

TEST_F(CommandManagerTest, AManagerWithoutAConnectionIsCulledAndStopsQuietly)
{
    CommandManager manager;
    EXPECT_TRUE(manager.shouldBeCulledFromService(&service()));
    manager.stopCommand();
    manager.runCommand();
    EXPECT_TRUE(m_log->linesContaining(QStringLiteral("Unable to send")).isEmpty());
}
