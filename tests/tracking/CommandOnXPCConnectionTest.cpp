#include "tracking/CommandOnXPCConnection.h"

#include "FakeCommand.h"
#include "FlakyComponent.h"
#include "PeerBus.h"
#include "RecordingLogger.h"
#include "exception/KSException.h"
#include "messaging/KSPublishedEndpointConnection.h"
#include "messaging/MessagingThread.h"
#include "tracking/CommandProxy.h"

#include <QDBusMessage>
#include <gtest/gtest.h>
#include <limits>

namespace {
const QString kRetryLine = QStringLiteral("Problem communicating with helper, retrying...");
const QString kLostLine = QStringLiteral("Lost connection with helper");

// What the policy must log for a number of attempts: 0-4 and those ending in 8.
int expectedRetryLines(qint64 attempts)
{
    int lines = 0;
    for (qint64 n = 0; n < attempts; ++n) {
        lines += (n < 5 || n % 10 == 8) ? 1 : 0;
    }
    return lines;
}
} // namespace

TEST(CommandOnXPCConnectionPolicy, ToleranceIsClampedAndSetsTheRetries)
{
    CommandOnXPCConnection connection(QStringLiteral("verify"), Endpoint(),
                                      QStringLiteral("cmd-77"));
    EXPECT_EQ(connection.connectionName(), QStringLiteral("cmd-77"));
    EXPECT_EQ(connection.interface().protocol(), QStringLiteral("RepositoryCommandMessaging"));
    EXPECT_EQ(connection.tolerance(), 1.0);
    const double infinity = std::numeric_limits<double>::infinity();
    const struct
    {
        double set;
        double tolerance;
        qint64 attempts;
        double interval;
    } cases[] = {
        {2.5, 1.0, 120, 0.5},
        {-1, 0.0, 20, 0.1},
        {0.25, 0.25, 45, 0.2},
        {infinity, infinity, std::numeric_limits<qint64>::max(), 6.0},
    };
    for (const auto& c : cases) {
        connection.setTolerance(c.set);
        EXPECT_EQ(connection.tolerance(), c.tolerance) << c.set;
        EXPECT_EQ(connection.retryAttempts(), c.attempts) << c.set;
        EXPECT_DOUBLE_EQ(connection.retryInterval(), c.interval) << c.set;
    }
}

class CommandOnXPCConnectionTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(MessagingThread::instance().connection().isConnected())
            << "no session bus: run the tests through scripts/headless";
        ASSERT_TRUE(m_peer.isConnected());
        m_log = RecordingLogger::install();
    }

    void TearDown() override
    {
        CommandTaskConnection::setLogLine(nullptr);
        Logger::releaseDefaultLogger();
    }

    // Sends "run" through the connection until the policy gives up; answers how many attempts
    // ran the block and the exception raised.
    std::pair<int, std::optional<KSException>> exhaust(CommandOnXPCConnection& connection)
    {
        int attempts = 0;
        try {
            connection.performOnCommand([&attempts](const CommandProxy& command) {
                ++attempts;
                command.send(QStringLiteral("run"));
            });
        } catch (const KSException& failure) {
            return {attempts, failure};
        }
        return {attempts, std::nullopt};
    }

    PeerBus m_peer{QStringLiteral("peer-connection")};
    std::shared_ptr<RecordingLogger> m_log;
};

TEST_F(CommandOnXPCConnectionTest, WithoutANameTheCommandIsAskedForIt)
{
    auto* command = new FakeCommand(QStringLiteral("recall"));
    const Endpoint endpoint = m_peer.serve(command, QStringLiteral("/test/recall"));

    CommandOnXPCConnection connection(QString(), endpoint, QStringLiteral("cmd-recall"));

    EXPECT_EQ(command->calls(), QStringList{QStringLiteral("queryNameWithReply")});
    EXPECT_EQ(connection.interface().chain(),
              (QStringList{QStringLiteral("RecallCommandMessaging"),
                           QStringLiteral("RestoreCommandMessaging"),
                           QStringLiteral("RepositoryCommandMessaging"),
                           QStringLiteral("CommandMessaging")}));
    try {
        CommandOnXPCConnection gone(QString(), m_peer.nowhere(), QStringLiteral("cmd-gone"));
        FAIL() << "created a connection to nothing";
    } catch (const KSException& failure) {
        EXPECT_EQ(failure.name(), QStringLiteral("IPC"));
        EXPECT_EQ(failure.reason(),
                  QStringLiteral("could not obtain command name from remote process"));
    }
}

TEST_F(CommandOnXPCConnectionTest, MessagesGoOutOnTheInterfaceThatDeclaresThem)
{
    auto* command = new FakeCommand(QStringLiteral("verify"));
    const Endpoint endpoint = m_peer.serve(command, QStringLiteral("/test/verify"));
    CommandOnXPCConnection connection(QStringLiteral("verify"), endpoint, QStringLiteral("v-1"));

    auto pid = std::make_shared<QString>();
    connection.performOnCommand([pid](const CommandProxy& proxy) {
        proxy.send(QStringLiteral("run"));
        proxy.call(
            QStringLiteral("queryProcessIdentifierWithReply"), {},
            [pid](const QDBusMessage& reply) { *pid = reply.arguments().value(0).toString(); });
    });

    EXPECT_EQ(*pid, QStringLiteral("pid-of-verify"));
    EXPECT_EQ(command->calls(), (QStringList{QStringLiteral("run"),
                                             QStringLiteral("queryProcessIdentifierWithReply")}));
}

TEST_F(CommandOnXPCConnectionTest, ADeadCommandIsTriedAsOftenAsTheDefaultToleranceAllows)
{
    auto* flaky = new FlakyComponent;
    const Endpoint endpoint = m_peer.serve(flaky, QStringLiteral("/test/flaky"));
    CommandOnXPCConnection connection(QStringLiteral("compact"), endpoint, QStringLiteral("c-9"));
    const LogLine context = Logger::log(0, QStringLiteral("watching c-9"));
    CommandTaskConnection::setLogLine(context);

    const auto [attempts, failure] = exhaust(connection);

    EXPECT_EQ(attempts, 120);
    EXPECT_EQ(flaky->barriers.load(), 121) << "one to connect, one per attempt";
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->name(), QStringLiteral("IPC"));
    EXPECT_EQ(failure->reason(), QStringLiteral("could not send message to helper process"));

    const auto retries = m_log->linesContaining(kRetryLine);
    ASSERT_EQ(retries.size(), expectedRetryLines(120));
    ASSERT_EQ(retries.size(), 17) << "attempts 0-4, 8, 18, ..., 118";
    EXPECT_EQ(retries.first().classification, 2);
    for (qsizetype i = 1; i < retries.size(); ++i) {
        EXPECT_EQ(retries.at(i).classification, 9);
    }
    for (const auto& retry : retries) {
        EXPECT_TRUE(sameLine(retry.parent, context)) << "attached to the thread's line";
        const auto details = m_log->childrenOf(retry.line);
        ASSERT_EQ(details.size(), 1);
        EXPECT_TRUE(details.first().message.startsWith(QStringLiteral("id: ")));
        EXPECT_TRUE(details.first().message.contains(QStringLiteral("c-9")));
    }

    const auto lost = m_log->linesContaining(kLostLine);
    ASSERT_EQ(lost.size(), 1);
    EXPECT_EQ(lost.first().classification, 4);
    EXPECT_TRUE(sameLine(lost.first().parent, context));
    const auto lostDetails = m_log->childrenOf(lost.first().line);
    EXPECT_TRUE(std::any_of(lostDetails.cbegin(), lostDetails.cend(), [](const auto& line) {
        return line.classification == 7 && line.message.startsWith(QStringLiteral("id: "));
    }));
    EXPECT_TRUE(std::any_of(lostDetails.cbegin(), lostDetails.cend(), [](const auto& line) {
        return line.message.contains(QStringLiteral("could not send message to helper process"));
    }));
}

TEST_F(CommandOnXPCConnectionTest, LessToleranceTriesLessAndANeverReachedCommandRunsNothing)
{
    const Endpoint flaky = m_peer.serve(new FlakyComponent, QStringLiteral("/test/flaky0"));
    const struct
    {
        Endpoint endpoint;
        double tolerance;
        int attempts;
        qsizetype retryLines;
    } cases[] = {
        {flaky, 0.0, 20, 7}, // attempts 0-4, 8 and 18
        {m_peer.nowhere(), 0.1, 0, expectedRetryLines(30)},
    };
    for (const auto& c : cases) {
        CommandOnXPCConnection connection(QStringLiteral("dump"), c.endpoint,
                                          QStringLiteral("d-0"));
        connection.setTolerance(c.tolerance);
        const qsizetype before = m_log->linesContaining(kRetryLine).size();

        const auto [attempts, failure] = exhaust(connection);

        EXPECT_EQ(attempts, c.attempts);
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->name(), QStringLiteral("IPC"));
        EXPECT_EQ(m_log->linesContaining(kRetryLine).size() - before, c.retryLines);
    }
    EXPECT_EQ(m_log->linesContaining(kLostLine).size(), 2);
}

TEST_F(CommandOnXPCConnectionTest, AMessageOutsideTheProtocolIsAProgrammingError)
{
    auto* command = new FakeCommand(QStringLiteral("dump"));
    const Endpoint endpoint = m_peer.serve(command, QStringLiteral("/test/dump"));
    CommandOnXPCConnection connection(QStringLiteral("dump"), endpoint, QStringLiteral("d-1"));

    EXPECT_THROW(connection.performOnCommand([](const CommandProxy& proxy) {
        proxy.send(QStringLiteral("setInstallParameters"), {QByteArray()});
    }),
                 std::logic_error);
}

TEST(CommandTaskConnectionLogLine, TheLogLineIsKeptPerThread)
{
    const LogLine mine = LogLineIdentifier::extending(nullptr, 77);
    CommandTaskConnection::setLogLine(mine);
    LogLine seenElsewhere = mine;
    std::thread other([&seenElsewhere] { seenElsewhere = CommandTaskConnection::logLine(); });
    other.join();

    EXPECT_TRUE(sameLine(CommandTaskConnection::logLine(), mine));
    EXPECT_EQ(seenElsewhere, nullptr);
    CommandTaskConnection::setLogLine(nullptr);
    EXPECT_EQ(CommandTaskConnection::logLine(), nullptr);
}
