#include "SwitchboardFixture.h"
#include "messaging/KSConnectionServiceSingleton.h"
#include "messaging/KSPublishedConnection.h"
#include "messaging/KSPublishedEndpointConnection.h"
#include "messaging/ServedObject.h"
#include "support/PrivateBus.h"

#include <QDBusMessage>
#include <QDir>
#include <QThread>
#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

using namespace Qt::StringLiterals;

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);
const QString kServing = u"KSComponentServing"_s;
const QString kNotVerified = u"failed to verify connection"_s;

// Waits until the hub knows an endpoint for the name other than `stale`, or knows none.
std::optional<Endpoint> waitForEndpoint(const QString& name, bool present,
                                        const std::optional<Endpoint>& stale = std::nullopt)
{
    std::optional<Endpoint> found;
    [[maybe_unused]] const bool settled = QTest::qWaitFor(
        [&] {
            found = KSPublishedConnection::lookUpEndpoint(name);
            return found.has_value() == present && (!present || found != stale);
        },
        30000);
    return found;
}

std::shared_ptr<KSPublishedConnection> connectTo(const QString& name)
{
    return KSConnection::connectionWithPublishedName(name, 0, kServing);
}

struct Received
{
    std::atomic<int> count{0};
    QMutex mutex;
    QVariantMap lastInfo;
    QString lastSource;

    SwitchboardSubscriber::Block block()
    {
        return [this](const QString& source, const QVariantMap& info) {
            QMutexLocker locker(&mutex);
            lastInfo = info;
            lastSource = source;
            ++count;
        };
    }
};

struct Server
{
    std::unique_ptr<ChildProcess> process;
    std::optional<Endpoint> endpoint; // none when the hub never handed it out
};
} // namespace

class SwitchboardTest : public SwitchboardFixture
{
protected:
    static Server serve(const QString& name)
    {
        Server server{ctl({u"serve"_s, name}), std::nullopt};
        if (server.process->waitForOutput(u"serving "_s + name)) {
            server.endpoint = waitForEndpoint(name, true);
        }
        return server;
    }

    static bool post(const QStringList& arguments)
    {
        return ctl(QStringList{u"post"_s} + arguments)->finished();
    }
};

TEST_F(SwitchboardTest, APublishedEndpointIsFoundUntilItsProcessRedactsOrDies)
{
    // Every publication is announced to all: a process publishes once, even on its first
    // connection to the hub, or its peers would greet it twice.
    QMutex mutex;
    QStringList announced;
    KSConnection::switchboardConnection()->addObserver(
        u"test.published"_s, u"SwitchboardEndpointPublished"_s, u"Switchboard"_s,
        [&](const QString&, const QVariantMap& info) {
            QMutexLocker locker(&mutex);
            announced << info.value(u"id"_s).toString();
        });
    ASSERT_TRUE(KSConnection::switchboardConnection()->ping());
    // Killed, the process has no chance to redact: the hub drops what it published.
    for (const int signal : {SIGKILL, SIGTERM}) {
        const QString name = u"test.served%1"_s.arg(signal);
        const Server server = serve(name);
        ASSERT_TRUE(server.endpoint.has_value()) << signal;
        EXPECT_TRUE(server.endpoint->path().startsWith(u"/com/kestrom/listener/"_s));
        EXPECT_TRUE(connectTo(name)->ping()) << signal;
        ASSERT_TRUE(server.process->stop(signal));
        if (signal == SIGTERM) {
            EXPECT_EQ(server.process->exitCode(), 0);
        }
        EXPECT_FALSE(waitForEndpoint(name, false).has_value()) << signal;
    }
    // Whatever the hub heard from the SIGTERM'd process came before its redaction.
    ASSERT_TRUE(KSConnection::switchboardConnection()->ping());
    QMutexLocker locker(&mutex);
    EXPECT_EQ(announced.count(u"test.served15"_s), 1) << announced.join(u' ').toStdString();
}

TEST_F(SwitchboardTest, AnUnpublishedNameGivesNoProxyNoVerificationLineAndNoneOnTheCommandLine)
{
    auto lookup = ctl({u"lookup"_s, u"test.nobody"_s});
    ASSERT_TRUE(lookup->finished());
    EXPECT_EQ(lookup->output().trimmed(), u"none"_s);
    const auto connection = connectTo(u"test.nobody"_s);
    EXPECT_EQ(connection->serviceProxy(), nullptr);
    Error error;
    EXPECT_FALSE(connection->syncReturningError(&error));
    EXPECT_EQ(error.domain(), KSConnection::kCocoaErrorDomain);
    EXPECT_EQ(error.code(), KSConnection::kConnectionInvalid);
    EXPECT_EQ(logLinesContaining(kNotVerified), 0);
}

TEST_F(SwitchboardTest, ObserversMatchByNameAndBySourceAndAnonymousIdsCountFromOne)
{
    const QString first = KSSwitchboardConnection::nextAnonymousObserverID();
    const QString second = KSSwitchboardConnection::nextAnonymousObserverID();
    EXPECT_EQ(first, u".anon.1"_s) << "ctest runs each test in a process of its own";
    EXPECT_EQ(second.mid(6).toULongLong(), first.mid(6).toULongLong() + 1);

    const auto switchboard = KSConnection::switchboardConnection();
    Received anySource;
    Received fromS1;
    switchboard->addObserver(QString(), u"test.Ping"_s, anySource.block());
    switchboard->addObserver(QString(), u"test.Ping"_s, u"S1"_s, fromS1.block());
    ASSERT_TRUE(switchboard->ping());
    auto watcher = ctl({u"watch"_s, u"test.Ping"_s}); // and the command line peer
    ASSERT_TRUE(watcher->waitForOutput(u"watching"_s));

    ASSERT_TRUE(post({u"test.Ping"_s, u"--source"_s, u"S2"_s, u"--info"_s, u"colour=blue"_s}));
    EXPECT_TRUE(watcher->waitForOutput(u"colour = blue;"_s));
    EXPECT_TRUE(watcher->stop(SIGINT));
    EXPECT_EQ(watcher->exitCode(), 0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return anySource.count == 1; }, 30000));
    {
        QMutexLocker locker(&anySource.mutex);
        EXPECT_EQ(anySource.lastInfo, (QVariantMap{{u"colour"_s, u"blue"_s}}));
        EXPECT_EQ(anySource.lastSource, u"S2"_s);
    }
    ASSERT_TRUE(post({u"test.Ping"_s, u"--source"_s, u"S1"_s}));
    ASSERT_TRUE(QTest::qWaitFor([&] { return anySource.count == 2; }, 30000));
    // The hub relays in order, so by now the S2 notice would have reached fromS1 too.
    EXPECT_EQ(fromS1.count, 1);
}

TEST_F(SwitchboardTest, APublishedNameObserverFiresOnceForANameAlreadyPublished)
{
    const Server server = serve(u"test.early"_s);
    ASSERT_TRUE(server.endpoint.has_value());

    std::atomic<int> fired{0};
    std::atomic<int> redacted{0};
    QMutex mutex;
    Endpoint seen;
    KSConnection::switchboardConnection()->addObserverWhenName(
        u"test"_s, u"test.early"_s,
        [&](const Endpoint& endpoint) {
            QMutexLocker locker(&mutex);
            seen = endpoint;
            ++fired;
        },
        [&] { ++redacted; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return fired == 1; }, 30000));
    {
        QMutexLocker locker(&mutex);
        EXPECT_EQ(seen, *server.endpoint);
    }
    // A publication notice for another name does not count.
    ASSERT_TRUE(post({SwitchboardNames::kEndpointPublished, u"--source"_s,
                      SwitchboardNames::kSource, u"--info"_s, u"id=test.other"_s}));
    ASSERT_TRUE(server.process->stop(SIGKILL));
    ASSERT_TRUE(QTest::qWaitFor([&] { return redacted == 1; }, 30000));
    EXPECT_EQ(fired, 1);
}

TEST_F(SwitchboardTest, AfterTheHubRestartsObserversAndPublicationsComeBackByThemselves)
{
    Received received;
    KSConnection::switchboardConnection()->addObserver(u"test.restart"_s, u"test.Again"_s,
                                                       received.block());
    KSConnectionServiceSingleton vendor(new ServedObject);
    vendor.publishWithName(u"test.vendor"_s);
    ASSERT_TRUE(waitForEndpoint(u"test.vendor"_s, true).has_value());
    const QString published = vendor.endpoint().service() + u' ' + vendor.endpoint().path();

    // Seen only from other processes: this one must come back without being asked to.
    for (int restart = 1; restart <= 5; ++restart) {
        SCOPED_TRACE(restart);
        killHub();
        startHub();
        EXPECT_TRUE(QTest::qWaitFor(
            [&] {
                auto lookup = ctl({u"lookup"_s, u"test.vendor"_s});
                return lookup->finished() && lookup->output().trimmed() == published;
            },
            30000));
        ASSERT_TRUE(post({u"test.Again"_s}));
        EXPECT_TRUE(QTest::qWaitFor([&] { return received.count == restart; }, 30000));
    }
    EXPECT_EQ(received.count, 5) << "each notice heard once";
}

TEST_F(SwitchboardTest, ObserversAreForgottenAtExitOnlyByAHubThatRunsNeverByOneStartedForIt)
{
    Received received;
    const auto switchboard = KSConnection::switchboardConnection();
    switchboard->addObserver(u"test.exit"_s, u"test.Exit"_s, received.block());
    ASSERT_TRUE(switchboard->ping());
    // From here the bus starts the hub on demand, and the hub leaves a mark when it is.
    const QString mark = m_stateHome.filePath(u"activated"_s);
    QFile service(QDir(PrivateBus::serviceFolder()).filePath(u"hub.service"_s));
    ASSERT_TRUE(service.open(QIODevice::WriteOnly));
    service.write("[D-BUS Service]\nName=" +
                  SwitchboardNames::busName(SwitchboardNames::perUserServiceName()).toUtf8() +
                  "\nExec=/bin/sh -c \"touch '" + mark.toUtf8() +
                  "' && exec " SWITCHBOARD_PROGRAM " >/dev/null 2>&1\"\n");
    service.close();
    const auto reloadServices = [] {
        const QDBusMessage reload = MessagingThread::instance().connection().call(
            QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s,
                                           u"org.freedesktop.DBus"_s, u"ReloadConfig"_s));
        return reload.type() == QDBusMessage::ReplyMessage;
    };
    ASSERT_TRUE(reloadServices());
    killHub();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !switchboard->connected(); }, 30000));

    switchboard->removeAllObservers();
    EXPECT_FALSE(QFile::exists(mark)) << "a hub was started only to be told to forget";
    // The bus does start it for anything else: the check above could have seen it.
    EXPECT_TRUE(switchboard->ping());
    EXPECT_TRUE(QFile::exists(mark));
    // The bus's hub is no child of this test: it is stopped here, not left to the bus's end,
    // and nothing may start another. The last ping also waits out the reconnection that the
    // hub's start notice set off, so no call is still on its way when the test ends.
    ASSERT_TRUE(service.remove());
    ASSERT_TRUE(reloadServices());
    const QDBusReply<uint> pid = MessagingThread::instance().connection().interface()->servicePid(
        SwitchboardNames::busName(SwitchboardNames::perUserServiceName()));
    ASSERT_TRUE(pid.isValid());
    ::kill(pid_t(pid.value()), SIGTERM);
    EXPECT_TRUE(QTest::qWaitFor([] { return !hubIsServing(); }, 30000));
    EXPECT_FALSE(switchboard->ping());
}

TEST_F(SwitchboardTest, AStaleKnownEndpointGivesWayToTheLiveOneWithoutALogLine)
{
    const Server first = serve(u"test.moving"_s);
    ASSERT_TRUE(first.endpoint.has_value());
    ASSERT_TRUE(first.process->stop(SIGKILL));
    const Server second = serve(u"test.moving"_s);
    ASSERT_TRUE(waitForEndpoint(u"test.moving"_s, true, first.endpoint).has_value());

    const auto connection = std::make_shared<KSPublishedEndpointConnection>(
        *first.endpoint, u"test.moving"_s, 0, kServing);
    ASSERT_TRUE(connection->ping());
    EXPECT_TRUE(connection->connected());
    EXPECT_EQ(logLinesContaining(kNotVerified), 0);
}

TEST_F(SwitchboardTest, MessageFailuresLogOnceUntilABarrierSucceeds)
{
    const Server server = serve(u"test.failing"_s);
    ASSERT_TRUE(server.endpoint.has_value());
    const auto connection = connectTo(u"test.failing"_s);
    const auto failOnce = [&] {
        connection->serviceProxy()->call(u"com.kestrom.NoSuchProtocol"_s, u"nothing"_s, {}, {});
    };
    const QString logged = u"message from test.failing to "_s;
    failOnce();
    failOnce();
    ASSERT_TRUE(QTest::qWaitFor([&] { return logLinesContaining(logged) == 1; }, 30000));
    // The second failure may still be on its way and be taken as the barrier's own; the next
    // barrier then succeeds. Either way the second failure logged nothing.
    ASSERT_TRUE(QTest::qWaitFor([&] { return connection->ping(); }, 30000));
    EXPECT_EQ(logLinesContaining(logged), 1);
    failOnce();
    EXPECT_TRUE(QTest::qWaitFor([&] { return logLinesContaining(logged) == 2; }, 30000));
}

TEST_F(SwitchboardTest, TheHubRefusesASecondHubAndMalformedInputAndCarriesOn)
{
    ChildProcess secondHub(QStringLiteral(SWITCHBOARD_PROGRAM), QStringList());
    ASSERT_TRUE(secondHub.finished());
    EXPECT_EQ(secondHub.exitCode(), 1);
    EXPECT_TRUE(secondHub.output().contains(u"another switchboard already serves"_s));
    EXPECT_TRUE(hubIsServing());

    QDBusMessage wrong = QDBusMessage::createMethodCall(
        SwitchboardNames::busName(SwitchboardNames::perUserServiceName()),
        SwitchboardNames::kSwitchboardPath, u"com.kestrom.StromSwitchboarding"_s,
        u"queryEndpointForIdentifier"_s);
    wrong << 42 << QByteArray("x");
    EXPECT_EQ(MessagingThread::instance().connection().call(wrong).type(),
              QDBusMessage::ErrorMessage);

    // User info that does not decode is logged, not delivered.
    const auto switchboard = KSConnection::switchboardConnection();
    Received received;
    switchboard->addObserver(u"test.garbage"_s, u"test.Garbage"_s, received.block());
    ASSERT_TRUE(switchboard->ping());
    switchboard->serviceProxy()->send(
        u"com.kestrom.StromSwitchboarding"_s, u"postNotificationName"_s,
        {u"test.Garbage"_s, QString(), QByteArray("\xff\x00garbage", 9)});
    ASSERT_TRUE(QTest::qWaitFor([&] { return logLinesContaining(u"undecodable user info"_s) == 1; },
                                30000));
    EXPECT_EQ(received.count, 0);
    EXPECT_TRUE(switchboard->ping());
}

TEST_F(SwitchboardTest, OnlyTheCurrentConnectionsLossCallsTheInvalidationHandler)
{
    const Server first = serve(u"test.swap"_s);
    ASSERT_TRUE(first.endpoint.has_value());
    const auto connection = connectTo(u"test.swap"_s);
    std::atomic<int> lost{0};
    connection->setInvalidationHandler([&lost] { ++lost; });
    ASSERT_TRUE(connection->ping());

    connection->disconnect();
    const Server second = serve(u"test.swap"_s);
    ASSERT_TRUE(waitForEndpoint(u"test.swap"_s, true, first.endpoint).has_value());
    ASSERT_TRUE(connection->ping());

    ASSERT_TRUE(first.process->stop(SIGKILL));  // the old candidate's peer goes first...
    ASSERT_TRUE(second.process->stop(SIGKILL)); // ...then the current one's
    ASSERT_TRUE(QTest::qWaitFor([&] { return lost >= 1; }, 30000));
    EXPECT_FALSE(connection->connected());
    EXPECT_EQ(lost, 1);
}

namespace {
// Runs the work on a thread of its own; false when it has not ended after a generous while, so
// that a hang fails the test instead of stopping the whole run. The thread is left behind then.
bool ends(std::function<void()> work)
{
    auto ended = std::make_shared<std::atomic<bool>>(false);
    std::thread([work = std::move(work), ended] {
        work();
        *ended = true;
    }).detach();
    return QTest::qWaitFor([&] { return ended->load(); }, 30000);
}

// A call every peer answers with an error, as a command refusing a question does.
void callSomethingUnknown(const RemoteProxy& proxy)
{
    proxy.call(u"com.kestrom.KSComponentMessaging"_s, u"noSuchQuestion"_s, {}, {});
}
} // namespace

TEST_F(SwitchboardTest, AFailedCallEndsExactlyItsOwnBlockAndTheNextBlocksAreAnswered)
{
    // One peer in another process, and one served by this very process: a block calling back
    // into its own endpoint must not deadlock either.
    const Server server = serve(u"test.refusing"_s);
    ASSERT_TRUE(server.endpoint.has_value());
    KSConnectionServiceSingleton vendor(new ServedObject);
    vendor.publishWithName(u"test.self"_s);
    ASSERT_TRUE(waitForEndpoint(u"test.self"_s, true).has_value());

    for (const QString& name : {u"test.refusing"_s, u"test.self"_s}) {
        const auto connection = connectTo(name);
        for (int round = 0; round < 4; ++round) {
            SCOPED_TRACE(name.toStdString() + " round " + std::to_string(round));
            Error error;
            bool failedBlockAnswered = true;
            bool pingAnswered = false;
            ASSERT_TRUE(ends([&] {
                failedBlockAnswered = connection->performSynchronousBlock(
                    [round](const RemoteProxy& proxy) {
                        callSomethingUnknown(proxy);
                        if (round % 2 == 1) {
                            // The error is back before the block's barrier is even sent.
                            QThread::msleep(300);
                        }
                    },
                    &error);
                pingAnswered = connection->ping();
            }));
            EXPECT_FALSE(failedBlockAnswered);
            EXPECT_EQ(error.userInfo().value(u"Name"_s).toString(),
                      u"org.freedesktop.DBus.Error.UnknownMethod"_s);
            EXPECT_TRUE(pingAnswered);
        }
    }
}

TEST_F(SwitchboardTest, BlocksOnOneConnectionFromManyThreadsAllEnd)
{
    const Server server = serve(u"test.busy"_s);
    ASSERT_TRUE(server.endpoint.has_value());
    const auto connection = connectTo(u"test.busy"_s);
    std::atomic<int> failed{0};
    std::atomic<int> answered{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 6; ++thread) {
        threads.emplace_back([&, thread] {
            for (int round = 0; round < 10; ++round) {
                const bool fails = (thread + round) % 3 == 0;
                const bool ok = connection->performSynchronousBlock([fails](const RemoteProxy& p) {
                    if (fails) {
                        callSomethingUnknown(p);
                    }
                });
                (ok ? answered : failed)++;
                EXPECT_EQ(ok, !fails) << thread << " " << round;
            }
        });
    }
    ASSERT_TRUE(ends([&] {
        for (auto& thread : threads) {
            thread.join();
        }
    }));
    EXPECT_EQ(failed, 20);
    EXPECT_EQ(answered, 40);
}
