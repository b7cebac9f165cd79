#include "foundation/KeyedArchive.h"
#include "messaging/KSPublishedConnection.h"
#include "messaging/SwitchboardFixture.h"
#include "support/PrivateBus.h"
#include "tracking/CommandManager.h"
#include "tracking/CommandOnXPCConnection.h"

#include <QDBusArgument>

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);

const QString kMonitorName = QStringLiteral("com.kestrom.monitor");
} // namespace

// The real hub, the real monitor and real command processes, on a bus of the test's own.
class MonitorEndToEndTest : public SwitchboardFixture
{
protected:
    void SetUp() override
    {
        SwitchboardFixture::SetUp();
        m_monitor = std::make_unique<ChildProcess>(
            QStringLiteral(MONITOR_PROGRAM),
            QStringList{QStringLiteral("-platform"), QStringLiteral("offscreen"),
                        QStringLiteral("--cull-interval"), QStringLiteral("1")});
        ASSERT_TRUE(m_monitor->started());
        ASSERT_TRUE(QTest::qWaitFor(
            [] { return KSPublishedConnection::lookUpEndpoint(kMonitorName).has_value(); }, 30000))
            << m_monitor->output().toStdString();
    }

    void TearDown() override
    {
        m_monitor.reset();
        SwitchboardFixture::TearDown();
    }

    // A synchronous question to the monitor, as a command or the client would ask it.
    static QDBusMessage ask(const QString& interface, const QString& member,
                            const QVariantList& arguments)
    {
        const auto endpoint = KSPublishedConnection::lookUpEndpoint(kMonitorName);
        QDBusMessage call = QDBusMessage::createMethodCall(endpoint->service(), endpoint->path(),
                                                           interface, member);
        call.setArguments(arguments);
        return MessagingThread::instance().connection().call(call, QDBus::Block, 30000);
    }

    static Endpoint listenerFor(const QString& identifier, const QString& name)
    {
        const QDBusMessage reply = ask(
            QStringLiteral("com.kestrom.CommandListenerServiceProvider"),
            QStringLiteral("queryListenerForCommandIdentifier"),
            {identifier, KeyedArchive::archivedData(QVariantMap{{QStringLiteral("name"), name}})});
        return qdbus_cast<Endpoint>(reply.arguments().value(0));
    }

    std::unique_ptr<ChildProcess> m_monitor;
};

TEST_F(MonitorEndToEndTest, ACommandRunsItsWholeRoad)
{
    auto command =
        ctl({QStringLiteral("command"), QStringLiteral("capture"), QStringLiteral("--id"),
             QStringLiteral("test.capture.1"), QStringLiteral("--steps"), QStringLiteral("5"),
             QStringLiteral("--interval-ms"), QStringLiteral("20")});
    ASSERT_TRUE(command->finished(60000));
    EXPECT_EQ(command->exitCode(), 0) << command->output().toStdString();
    const QString output = command->output();
    EXPECT_TRUE(output.contains(QStringLiteral("roles 3"))) << output.toStdString();
    EXPECT_TRUE(output.contains(QStringLiteral("capture test.capture.1 stopped")));
    EXPECT_FALSE(output.contains(QStringLiteral("did not confirm")));
    EXPECT_EQ(logLinesContaining(QStringLiteral("added listener")), 1);
    EXPECT_EQ(logLinesContaining(QStringLiteral("removed listener")), 1);
}

TEST_F(MonitorEndToEndTest, TheSameIdentifierTwiceGivesTheSameListener)
{
    auto served = ctl({QStringLiteral("serve"), QStringLiteral("test.twice")});
    ASSERT_TRUE(served->waitForOutput(QStringLiteral("serving")));
    const Endpoint first = listenerFor(QStringLiteral("test.twice"), QStringLiteral("verify"));
    const Endpoint second = listenerFor(QStringLiteral("test.twice"), QStringLiteral("verify"));
    EXPECT_FALSE(first.isNone());
    EXPECT_EQ(first, second);
}

TEST_F(MonitorEndToEndTest, OnlyTheElevenCommandNamesCanBeMonitored)
{
    const auto canMonitor = [](const QString& name) {
        return ask(QStringLiteral("com.kestrom.StromMonitoring"),
                   QStringLiteral("queryCanMonitorCommandName"), {name})
            .arguments()
            .value(0)
            .toBool();
    };
    EXPECT_FALSE(canMonitor(QStringLiteral("Capture")));
    EXPECT_FALSE(canMonitor(QStringLiteral("dump")));
    EXPECT_TRUE(canMonitor(QStringLiteral("erase")));
    EXPECT_EQ(ask(QStringLiteral("com.kestrom.KSComponentInstalling"),
                  QStringLiteral("queryComponentVersionWithReply"), {})
                  .arguments()
                  .value(0)
                  .toString(),
              QStringLiteral("Monitor-2.2.5.12"));
}

TEST_F(MonitorEndToEndTest, AFailingCommandsExceptionReachesTheMonitor)
{
    auto command =
        ctl({QStringLiteral("command"), QStringLiteral("verify"), QStringLiteral("--id"),
             QStringLiteral("test.verify.1"), QStringLiteral("--steps"), QStringLiteral("2"),
             QStringLiteral("--interval-ms"), QStringLiteral("20"), QStringLiteral("--scenario"),
             QStringLiteral("fail"), QStringLiteral("--fail-name"), QStringLiteral("Data"),
             QStringLiteral("--posix"), QStringLiteral("13")});
    ASSERT_TRUE(command->finished(60000));
    EXPECT_EQ(command->exitCode(), 0) << command->output().toStdString();
    // The stop is answered only after the monitor handled it, so its lines are there now.
    EXPECT_EQ(logLinesContaining(QStringLiteral("command returned exception")), 1);
    EXPECT_GE(logLinesContaining(QStringLiteral("POSIXErr: 13")), 1);
}

TEST_F(MonitorEndToEndTest, ACommandKilledWithoutAStopIsLost)
{
    auto command =
        ctl({QStringLiteral("command"), QStringLiteral("compact"), QStringLiteral("--id"),
             QStringLiteral("test.compact.1"), QStringLiteral("--interval-ms"),
             QStringLiteral("20"), QStringLiteral("--die-after"), QStringLiteral("2")});
    ASSERT_TRUE(command->finished(60000));
    EXPECT_TRUE(QTest::qWaitFor(
        [] { return logLinesContaining(QStringLiteral("lost connection with command")) >= 1; },
        60000))
        << m_monitor->output().toStdString();
    EXPECT_TRUE(QTest::qWaitFor(
        [] { return logLinesContaining(QStringLiteral("removed listener")) == 1; }, 60000));
}

TEST_F(MonitorEndToEndTest, AStopRequestStopsTheCommand)
{
    auto command =
        ctl({QStringLiteral("command"), QStringLiteral("verify"), QStringLiteral("--id"),
             QStringLiteral("test.hang.1"), QStringLiteral("--scenario"), QStringLiteral("hang"),
             QStringLiteral("--interval-ms"), QStringLiteral("50")});
    ASSERT_TRUE(command->waitForOutput(QStringLiteral("started")));
    // The test plays a second monitor-side manager for the same command.
    auto manager = std::make_shared<CommandManager>();
    manager->connectToCommand(std::make_shared<CommandOnXPCConnection>(
        QStringLiteral("verify"), Endpoint(), QStringLiteral("test.hang.1")));
    manager->stopCommand();
    ASSERT_TRUE(command->finished(60000));
    EXPECT_TRUE(command->output().contains(QStringLiteral("<Cancel> canceled by request")))
        << command->output().toStdString();
}

TEST_F(MonitorEndToEndTest, APlainQuitExitsWith75)
{
    ASSERT_TRUE(m_monitor->stop(SIGTERM));
    EXPECT_EQ(m_monitor->exitCode(), 75);
    EXPECT_EQ(logLinesContaining(QStringLiteral("will exit abnormally")), 1);
    EXPECT_EQ(
        logLinesContaining(QStringLiteral("stopping Monitor-2.2.5.12, exiting with status 75")), 1);
    EXPECT_FALSE(KSPublishedConnection::lookUpEndpoint(kMonitorName).has_value());
}
