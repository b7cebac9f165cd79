#include "tracking/CommandManager.h"

#include "FakeCommand.h"
#include "PeerBus.h"
#include "RecordingLogger.h"
#include "exception/KSException.h"
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

    PeerBus m_peer{QStringLiteral("peer-manager")};
    std::shared_ptr<RecordingLogger> m_log;
    FakeCommand* m_command = nullptr;
    Endpoint m_endpoint;
};

TEST_F(CommandManagerTest, ConnectingRegistersAndTellsTheCommandThenRunStopAndDisconnect)
{
    const auto manager = connectedManager(QStringLiteral("cap-1"));
    EXPECT_EQ(service().listenerForIdentifier(QStringLiteral("cap-1")), manager);
    EXPECT_EQ(manager->connection()->listenerIdentifier(), kMonitorName);

    manager->runCommand();
    manager->stopCommand();
    EXPECT_TRUE(service().hasListenerForCommandIdentifier(QStringLiteral("cap-1")));
    manager->disconnect();

    EXPECT_FALSE(service().hasListenerForCommandIdentifier(QStringLiteral("cap-1")));
    ASSERT_TRUE(QTest::qWaitFor([&] { return m_command->calls().size() == 4; }, 30000));
    EXPECT_EQ(m_command->calls(),
              (QStringList{QStringLiteral("addListenerToPublishedService:") + kMonitorName,
                           QStringLiteral("run"), QStringLiteral("cancelFrom:1"),
                           QStringLiteral("removeListenerWithIdentifier:") + kMonitorName}));
}

TEST_F(CommandManagerTest, TheCullAsksTheCommandInTheBackgroundWhetherItFinished)
{
    const auto manager = connectedManager(QStringLiteral("cap-5"));
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
    EXPECT_EQ(m_command->count(QStringLiteral("queryIsFinishedWithReply")), 2);
}

TEST_F(CommandManagerTest, AnUnreachableCommandIsCulledAndAFailedStopDisconnects)
{
    auto manager = std::make_shared<CommandManager>();
    auto connection = std::make_shared<CommandOnXPCConnection>(
        QStringLiteral("capture"), m_peer.nowhere(), QStringLiteral("cap-dead"));
    connection->setTolerance(0);
    // Registered before the command is told, so the failure to tell it leaves a registered
    // manager with its connection.
    EXPECT_THROW(manager->connectToCommand(connection), KSException);
    ASSERT_TRUE(service().hasListenerForCommandIdentifier(QStringLiteral("cap-dead")));

    EXPECT_TRUE(manager->shouldBeCulledFromService(&service()));
    const auto lines = m_log->linesContaining(QStringLiteral("failed to query listener"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_EQ(lines.first().classification, 9);
    EXPECT_TRUE(lines.first().message.startsWith(
        QStringLiteral("-[CommandManager shouldBeCulledFromService:] failed to query listener: ")));

    manager->stopCommand();
    const auto stop = m_log->linesContaining(QStringLiteral("Unable to send stop request"));
    ASSERT_EQ(stop.size(), 1);
    EXPECT_EQ(stop.first().classification, 3);
    EXPECT_FALSE(service().hasListenerForCommandIdentifier(QStringLiteral("cap-dead")));

    CommandManager unconnected;
    EXPECT_TRUE(unconnected.shouldBeCulledFromService(&service()));
    unconnected.stopCommand();
    unconnected.runCommand();
    EXPECT_EQ(m_log->linesContaining(QStringLiteral("Unable to send")).size(), 1);
}
