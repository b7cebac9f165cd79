#include "tracking/CommandOnXPCConnection.h"

#include "CommandPeerFixture.h"
#include "messaging/KSPublishedEndpointConnection.h"
#include "tracking/CommandProxy.h"

#include <QDBusContext>
#include <QDBusError>
#include <QSignalSpy>
#include <QTest>
#include <limits>
#include <thread>

using namespace Qt::StringLiterals;

namespace {
// A peer whose first barrier succeeds, so that a connection to it is made, and whose every later
// barrier fails: each message sent to it then counts as a failed attempt.
class FlakyComponent : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.kestrom.KSComponentMessaging")

public:
    std::atomic<int> barriers{0};

public Q_SLOTS:
    void barrierWithCompletion()
    {
        if (barriers.fetch_add(1) > 0) {
            sendErrorReply(QDBusError::Failed, u"flaky peer"_s);
        }
    }
};

const QString kMonitorName = u"com.kestrom.monitor"_s;
const QString kRetryLine = u"Problem communicating with helper, retrying..."_s;
const QString kLostLine = u"Lost connection with helper"_s;
} // namespace

TEST(CommandOnXPCConnectionPolicy, ToleranceIsClampedAndSetsTheRetries)
{
    CommandOnXPCConnection connection(u"verify"_s, Endpoint(), u"cmd-77"_s);
    EXPECT_EQ(connection.connectionName(), u"cmd-77"_s);
    EXPECT_EQ(connection.interface().protocol(), u"RepositoryCommandMessaging"_s);
    EXPECT_EQ(connection.tolerance(), 1.0);
    const double infinity = std::numeric_limits<double>::infinity();
    // Set, then the tolerance, attempts and interval it gives.
    const std::tuple<double, double, qint64, double> cases[] = {
        {2.5, 1.0, 120, 0.5},
        {-1, 0.0, 20, 0.1},
        {0.25, 0.25, 45, 0.2},
        {infinity, infinity, std::numeric_limits<qint64>::max(), 6.0},
    };
    for (const auto& [set, tolerance, attempts, interval] : cases) {
        connection.setTolerance(set);
        EXPECT_EQ(connection.tolerance(), tolerance) << set;
        EXPECT_EQ(connection.retryAttempts(), attempts) << set;
        EXPECT_DOUBLE_EQ(connection.retryInterval(), interval) << set;
    }
}

TEST(CommandTaskConnectionLogLine, TheLogLineIsKeptPerThread)
{
    const LogLine mine = LogLineIdentifier::extending(nullptr, 77);
    CommandTaskConnection::setLogLine(mine);
    LogLine seenElsewhere = mine;
    std::thread([&seenElsewhere] { seenElsewhere = CommandTaskConnection::logLine(); }).join();

    EXPECT_TRUE(sameLine(CommandTaskConnection::logLine(), mine));
    EXPECT_EQ(seenElsewhere, nullptr);
    CommandTaskConnection::setLogLine(nullptr);
    EXPECT_EQ(CommandTaskConnection::logLine(), nullptr);
}

// Connections and managers made the way the monitor makes them, to the peer's command.
class CommandOnXPCConnectionTest : public CommandPeerFixture
{
protected:
    void TearDown() override
    {
        CommandTaskConnection::setLogLine(nullptr);
        CommandPeerFixture::TearDown();
    }

    // Sends "run" through the connection until the policy gives up: how many attempts ran the
    // block, and what was raised.
    static std::pair<int, QString> exhaust(CommandOnXPCConnection& connection)
    {
        int attempts = 0;
        const QString failure = raised([&] {
            connection.performOnCommand([&attempts](const CommandProxy& command) {
                ++attempts;
                command.send(u"run"_s);
            });
        });
        return {attempts, failure};
    }
};

TEST_F(CommandOnXPCConnectionTest, WithoutANameTheCommandIsAskedForIt)
{
    auto* command = new FakeCommand(u"recall"_s);
    CommandOnXPCConnection connection(QString(), m_peer.serve(command, u"/test/recall"_s), u"r"_s);

    EXPECT_EQ(command->calls(), QStringList{u"queryNameWithReply"_s});
    EXPECT_EQ(connection.connection()->serviceInterface(), u"RecallCommandMessaging"_s);
    EXPECT_EQ(connection.interface().chain(),
              (QStringList{u"RecallCommandMessaging"_s, u"RestoreCommandMessaging"_s,
                           u"RepositoryCommandMessaging"_s, u"CommandMessaging"_s}));
    EXPECT_EQ(raised([this] { CommandOnXPCConnection(QString(), m_peer.nowhere(), u"gone"_s); }),
              u"IPC: could not obtain command name from remote process"_s);
}

TEST_F(CommandOnXPCConnectionTest, ADeadCommandIsTriedAsOftenAsTheDefaultToleranceAllows)
{
    auto* flaky = new FlakyComponent;
    CommandOnXPCConnection connection(u"compact"_s, m_peer.serve(flaky, u"/test/flaky"_s),
                                      u"c-9"_s);
    const LogLine context = Logger::log(0, u"watching c-9"_s);
    CommandTaskConnection::setLogLine(context);

    EXPECT_EQ(exhaust(connection),
              std::pair(120, u"IPC: could not send message to helper process"_s));
    EXPECT_EQ(flaky->barriers.load(), 121) << "one to connect, one per attempt";

    QList<int> classes(17, 9);
    classes[0] = 2;
    EXPECT_EQ(m_log->classesOf(kRetryLine), classes) << "attempts 0-4, 8, 18, ..., 118";
    for (const auto& retry : m_log->linesContaining(kRetryLine)) {
        EXPECT_TRUE(sameLine(retry.parent, context)) << "attached to the thread's line";
        const QStringList details = m_log->messagesContaining({}, retry.line);
        EXPECT_TRUE(details.size() == 1 && details.first().startsWith(u"id: "_s) &&
                    details.first().contains(u"c-9"_s))
            << details.join(u'|').toStdString();
    }

    ASSERT_EQ(m_log->classesOf(kLostLine), QList<int>{4});
    const auto lost = m_log->linesContaining(kLostLine).first();
    EXPECT_TRUE(sameLine(lost.parent, context));
    EXPECT_EQ(m_log->classesOf(u"id: "_s, lost.line), QList<int>{7});
    EXPECT_TRUE(m_log->messagesContaining(u"id: "_s, lost.line).value(0).startsWith(u"id: "_s));
    EXPECT_EQ(m_log->classesOf(u"could not send message to helper process"_s, lost.line).size(), 1);
}

TEST_F(CommandOnXPCConnectionTest, ANeverReachedCommandRunsNothingAndProtocolsAreKept)
{
    CommandOnXPCConnection nowhere(u"dump"_s, m_peer.nowhere(), u"d-0"_s);
    nowhere.setTolerance(0.1);
    const auto [attempts, failure] = exhaust(nowhere);
    EXPECT_EQ(attempts, 0);
    EXPECT_TRUE(failure.startsWith(u"IPC: "_s)) << failure.toStdString();
    EXPECT_EQ(m_log->linesContaining(kRetryLine).size(), 8) << "attempts 0-4, 8, 18 and 28";
    EXPECT_EQ(m_log->linesContaining(kLostLine).size(), 1);

    // The protocol follows the name a peer gives itself: a message outside it fails as an
    // exchange with the command does, never as an assertion.
    CommandOnXPCConnection capture(u"capture"_s, m_endpoint, u"c-1"_s);
    const QString outside = raised([&] {
        capture.performOnCommand([](const CommandProxy& proxy) {
            proxy.send(u"setInstallParameters"_s, {QByteArray()});
        });
    });
    EXPECT_TRUE(outside.startsWith(u"IPC: "_s) && outside.contains(u"setInstallParameters"_s))
        << outside.toStdString();
}

TEST_F(CommandOnXPCConnectionTest, ConnectingRegistersAndTellsTheCommandThenRunStopAndDisconnect)
{
    const auto manager = connected(std::make_shared<CommandManager>(), u"cap-1"_s);
    EXPECT_EQ(service().listenerForIdentifier(u"cap-1"_s), manager);
    EXPECT_EQ(manager->connection()->listenerIdentifier(), kMonitorName);

    manager->runCommand();
    manager->stopCommand();
    EXPECT_TRUE(service().hasListenerForCommandIdentifier(u"cap-1"_s));
    manager->disconnect();

    EXPECT_FALSE(service().hasListenerForCommandIdentifier(u"cap-1"_s));
    ASSERT_TRUE(QTest::qWaitFor([&] { return m_command->calls().size() == 4; }, 30000));
    EXPECT_EQ(m_command->calls(),
              (QStringList{u"addListenerToPublishedService:"_s + kMonitorName, u"run"_s,
                           u"cancelFrom:1"_s, u"removeListenerWithIdentifier:"_s + kMonitorName}));
}

TEST_F(CommandOnXPCConnectionTest, TheCullAsksTheCommandInTheBackgroundWhetherItFinished)
{
    const auto manager = connected(std::make_shared<CommandManager>(), u"cap-5"_s);
    QSignalSpy answered(&service(), &CommandListenerService::cullQuestionAnswered);
    service().cullTime(); // the grace of the first cull
    for (const bool finished : {false, true}) {
        m_command->finished = finished;
        service().cullTime();
        ASSERT_TRUE(answered.wait(30000));
        EXPECT_EQ(answered.last().at(1).toBool(), finished);
        EXPECT_EQ(service().hasListenerForCommandIdentifier(u"cap-5"_s), !finished);
    }
    EXPECT_EQ(m_command->count(u"queryIsFinishedWithReply"_s), 2);
}

TEST_F(CommandOnXPCConnectionTest, AnUnreachableCommandIsCulledAndAFailedStopDisconnects)
{
    const auto manager = std::make_shared<CommandManager>();
    connectToNothing(*manager, u"cap-dead"_s);
    ASSERT_TRUE(service().hasListenerForCommandIdentifier(u"cap-dead"_s));

    EXPECT_TRUE(manager->shouldBeCulledFromService(&service()));
    EXPECT_EQ(m_log->classesOf(u"failed to query listener"_s), QList<int>{9});
    EXPECT_TRUE(
        m_log->messagesContaining(u"failed to query listener"_s)
            .value(0)
            .startsWith(
                u"-[CommandManager shouldBeCulledFromService:] failed to query listener: "_s));

    manager->stopCommand();
    EXPECT_EQ(m_log->classesOf(u"Unable to send stop request"_s), QList<int>{3});
    EXPECT_FALSE(service().hasListenerForCommandIdentifier(u"cap-dead"_s));

    CommandManager unconnected;
    EXPECT_TRUE(unconnected.shouldBeCulledFromService(&service()));
    unconnected.stopCommand();
    unconnected.runCommand();
    EXPECT_EQ(m_log->linesContaining(u"Unable to send"_s).size(), 1);
}

#include "CommandOnXPCConnectionTest.moc"
