#include "SwitchboardFixture.h"
#include "messaging/KSConnectionServiceSingleton.h"
#include "messaging/KSPublishedConnection.h"
#include "messaging/KSPublishedEndpointConnection.h"
#include "messaging/ServedObject.h"
#include "support/PrivateBus.h"

#include <QDBusMessage>
#include <atomic>

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);

std::optional<Endpoint> waitForEndpoint(const QString& name, bool present)
{
    std::optional<Endpoint> found;
    [[maybe_unused]] const bool settled = QTest::qWaitFor(
        [&] {
            found = KSPublishedConnection::lookUpEndpoint(name);
            return found.has_value() == present;
        },
        30000);
    return found;
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
} // namespace

class SwitchboardTest : public SwitchboardFixture
{};

TEST_F(SwitchboardTest, PublishedEndpointsAreFoundAndGoWithTheirProcess)
{
    auto server = ctl({QStringLiteral("serve"), QStringLiteral("test.served")});
    ASSERT_TRUE(server->waitForOutput(QStringLiteral("serving test.served")));
    const auto endpoint = waitForEndpoint(QStringLiteral("test.served"), true);
    ASSERT_TRUE(endpoint.has_value());
    EXPECT_TRUE(endpoint->path().startsWith(QStringLiteral("/com/kestrom/listener/")));

    const auto connection = KSConnection::connectionWithPublishedName(
        QStringLiteral("test.served"), 0, QStringLiteral("KSComponentServing"));
    EXPECT_TRUE(connection->ping());

    // Killed without a chance to redact: the hub drops what the process published.
    ASSERT_TRUE(server->stop(SIGKILL));
    EXPECT_FALSE(waitForEndpoint(QStringLiteral("test.served"), false).has_value());
}

TEST_F(SwitchboardTest, ARedactedNameIsNoLongerFound)
{
    auto server = ctl({QStringLiteral("serve"), QStringLiteral("test.redacted")});
    ASSERT_TRUE(server->waitForOutput(QStringLiteral("serving")));
    ASSERT_TRUE(waitForEndpoint(QStringLiteral("test.redacted"), true).has_value());
    ASSERT_TRUE(server->stop(SIGTERM)); // the vendor shuts down and redacts
    EXPECT_EQ(server->exitCode(), 0);
    EXPECT_FALSE(waitForEndpoint(QStringLiteral("test.redacted"), false).has_value());
}

TEST_F(SwitchboardTest, AnUnpublishedNameGivesNoProxyAndNoVerificationLine)
{
    const auto connection = KSConnection::connectionWithPublishedName(
        QStringLiteral("test.nobody"), 0, QStringLiteral("KSComponentServing"));
    EXPECT_EQ(connection->serviceProxy(), nullptr);
    Error error;
    EXPECT_FALSE(connection->syncReturningError(&error));
    EXPECT_EQ(error.domain(), KSConnection::kCocoaErrorDomain);
    EXPECT_EQ(error.code(), KSConnection::kConnectionInvalid);
    EXPECT_EQ(logLinesContaining(QStringLiteral("failed to verify connection")), 0);
}

TEST_F(SwitchboardTest, ObserversMatchByNameAndBySource)
{
    const auto switchboard = KSConnection::switchboardConnection();
    Received anySource;
    Received fromS1;
    switchboard->addObserver(QString(), QStringLiteral("test.Ping"), anySource.block());
    switchboard->addObserver(QString(), QStringLiteral("test.Ping"), QStringLiteral("S1"),
                             fromS1.block());
    ASSERT_TRUE(switchboard->ping());

    auto post =
        ctl({QStringLiteral("post"), QStringLiteral("test.Ping"), QStringLiteral("--source"),
             QStringLiteral("S2"), QStringLiteral("--info"), QStringLiteral("k=v")});
    ASSERT_TRUE(post->finished());
    ASSERT_TRUE(QTest::qWaitFor([&] { return anySource.count == 1; }, 30000));
    {
        QMutexLocker locker(&anySource.mutex);
        EXPECT_EQ(anySource.lastInfo, (QVariantMap{{QStringLiteral("k"), QStringLiteral("v")}}));
        EXPECT_EQ(anySource.lastSource, QStringLiteral("S2"));
    }
    post = ctl({QStringLiteral("post"), QStringLiteral("test.Ping"), QStringLiteral("--source"),
                QStringLiteral("S1")});
    ASSERT_TRUE(post->finished());
    ASSERT_TRUE(QTest::qWaitFor([&] { return anySource.count == 2; }, 30000));
    // The hub relays in order, so by now the S2 notice would have reached fromS1 too.
    EXPECT_EQ(fromS1.count, 1);
}

TEST_F(SwitchboardTest, AnonymousObserverIdsCountFromOne)
{
    const QString first = KSSwitchboardConnection::nextAnonymousObserverID();
    const QString second = KSSwitchboardConnection::nextAnonymousObserverID();
    EXPECT_TRUE(first.startsWith(QStringLiteral(".anon.")));
    EXPECT_EQ(second.mid(6).toULongLong(), first.mid(6).toULongLong() + 1);
}

TEST_F(SwitchboardTest, APublishedNameObserverFiresOnceForANameAlreadyPublished)
{
    auto server = ctl({QStringLiteral("serve"), QStringLiteral("test.early")});
    ASSERT_TRUE(server->waitForOutput(QStringLiteral("serving")));
    const auto published = waitForEndpoint(QStringLiteral("test.early"), true);
    ASSERT_TRUE(published.has_value());

    const auto switchboard = KSConnection::switchboardConnection();
    std::atomic<int> fired{0};
    std::atomic<int> redacted{0};
    QMutex mutex;
    Endpoint seen;
    switchboard->addObserverWhenName(
        QStringLiteral("test"), QStringLiteral("test.early"),
        [&](const Endpoint& endpoint) {
            QMutexLocker locker(&mutex);
            seen = endpoint;
            ++fired;
        },
        [&] { ++redacted; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return fired == 1; }, 30000));
    {
        QMutexLocker locker(&mutex);
        EXPECT_EQ(seen, *published);
    }
    // A publication notice for another name does not count.
    auto other = ctl({QStringLiteral("post"), SwitchboardNames::kEndpointPublished,
                      QStringLiteral("--source"), SwitchboardNames::kSource,
                      QStringLiteral("--info"), QStringLiteral("id=test.other")});
    ASSERT_TRUE(other->finished());
    ASSERT_TRUE(server->stop(SIGKILL));
    ASSERT_TRUE(QTest::qWaitFor([&] { return redacted == 1; }, 30000));
    EXPECT_EQ(fired, 1);
}

TEST_F(SwitchboardTest, AfterTheHubRestartsObserversAndPublicationsComeBackByThemselves)
{
    const auto switchboard = KSConnection::switchboardConnection();
    Received received;
    switchboard->addObserver(QStringLiteral("test.restart"), QStringLiteral("test.Again"),
                             received.block());
    KSConnectionServiceSingleton vendor(new ServedObject);
    vendor.publishWithName(QStringLiteral("test.vendor"));
    ASSERT_TRUE(waitForEndpoint(QStringLiteral("test.vendor"), true).has_value());

    killHub();
    startHub();

    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            return KSPublishedConnection::lookUpEndpoint(QStringLiteral("test.vendor")).has_value();
        },
        30000));
    EXPECT_EQ(KSPublishedConnection::lookUpEndpoint(QStringLiteral("test.vendor")),
              vendor.endpoint());
    auto post = ctl({QStringLiteral("post"), QStringLiteral("test.Again")});
    ASSERT_TRUE(post->finished());
    EXPECT_TRUE(QTest::qWaitFor([&] { return received.count == 1; }, 30000));
}

TEST_F(SwitchboardTest, AStaleKnownEndpointGivesWayToTheLiveOneWithoutALogLine)
{
    auto first = ctl({QStringLiteral("serve"), QStringLiteral("test.moving")});
    ASSERT_TRUE(first->waitForOutput(QStringLiteral("serving")));
    const auto stale = waitForEndpoint(QStringLiteral("test.moving"), true);
    ASSERT_TRUE(stale.has_value());
    ASSERT_TRUE(first->stop(SIGKILL));
    auto second = ctl({QStringLiteral("serve"), QStringLiteral("test.moving")});
    ASSERT_TRUE(second->waitForOutput(QStringLiteral("serving")));
    std::optional<Endpoint> live;
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            live = KSPublishedConnection::lookUpEndpoint(QStringLiteral("test.moving"));
            return live.has_value() && *live != *stale;
        },
        30000));

    const auto connection = std::make_shared<KSPublishedEndpointConnection>(
        *stale, QStringLiteral("test.moving"), 0, QStringLiteral("KSComponentServing"));
    ASSERT_TRUE(connection->ping());
    EXPECT_TRUE(connection->connected());
    EXPECT_EQ(logLinesContaining(QStringLiteral("failed to verify connection")), 0);
}

TEST_F(SwitchboardTest, MessageFailuresLogOnceUntilABarrierSucceeds)
{
    auto server = ctl({QStringLiteral("serve"), QStringLiteral("test.failing")});
    ASSERT_TRUE(server->waitForOutput(QStringLiteral("serving")));
    ASSERT_TRUE(waitForEndpoint(QStringLiteral("test.failing"), true).has_value());
    const auto connection = KSConnection::connectionWithPublishedName(
        QStringLiteral("test.failing"), 0, QStringLiteral("KSComponentServing"));
    const auto failOnce = [&] {
        connection->serviceProxy()->call(QStringLiteral("com.kestrom.NoSuchProtocol"),
                                         QStringLiteral("nothing"), {}, {});
    };
    const QString logged = QStringLiteral("message from test.failing to ");
    failOnce();
    failOnce();
    ASSERT_TRUE(QTest::qWaitFor([&] { return logLinesContaining(logged) == 1; }, 30000));
    // The second failure may still be on its way and be taken as the barrier's own; the next
    // barrier then succeeds. Either way the second failure logged nothing.
    ASSERT_TRUE(QTest::qWaitFor([&] { return connection->ping(); }, 30000));
    EXPECT_EQ(logLinesContaining(logged), 1);
    failOnce();
    ASSERT_TRUE(QTest::qWaitFor([&] { return logLinesContaining(logged) == 2; }, 30000));
    EXPECT_EQ(logLinesContaining(logged), 2);
}

TEST_F(SwitchboardTest, ASecondHubRefusesToStart)
{
    auto second =
        std::make_unique<ChildProcess>(QStringLiteral(SWITCHBOARD_PROGRAM), QStringList());
    ASSERT_TRUE(second->finished());
    EXPECT_EQ(second->exitCode(), 1);
    EXPECT_TRUE(second->output().contains(QStringLiteral("another switchboard already serves")));
    EXPECT_TRUE(hubIsServing());
}

TEST_F(SwitchboardTest, MalformedCallsGetErrorsAndTheHubCarriesOn)
{
    QDBusMessage wrong = QDBusMessage::createMethodCall(
        SwitchboardNames::busName(SwitchboardNames::perUserServiceName()),
        SwitchboardNames::kSwitchboardPath, QStringLiteral("com.kestrom.StromSwitchboarding"),
        QStringLiteral("queryEndpointForIdentifier"));
    wrong << 42 << QByteArray("x");
    const QDBusMessage reply = MessagingThread::instance().connection().call(wrong);
    EXPECT_EQ(reply.type(), QDBusMessage::ErrorMessage);
    EXPECT_TRUE(KSConnection::switchboardConnection()->ping());
}

TEST_F(SwitchboardTest, UndecodableUserInfoIsLoggedNotDelivered)
{
    const auto switchboard = KSConnection::switchboardConnection();
    Received received;
    switchboard->addObserver(QStringLiteral("test.garbage"), QStringLiteral("test.Garbage"),
                             received.block());
    ASSERT_TRUE(switchboard->ping());
    switchboard->serviceProxy()->send(
        QStringLiteral("com.kestrom.StromSwitchboarding"), QStringLiteral("postNotificationName"),
        {QStringLiteral("test.Garbage"), QString(), QByteArray("\xff\x00garbage", 9)});
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return logLinesContaining(QStringLiteral("undecodable user info")) == 1; }, 30000));
    EXPECT_EQ(received.count, 0);
}

TEST_F(SwitchboardTest, CommandLinePeerLooksUpAndWatches)
{
    auto lookup = ctl({QStringLiteral("lookup"), QStringLiteral("test.absent")});
    ASSERT_TRUE(lookup->finished());
    EXPECT_EQ(lookup->output().trimmed(), QStringLiteral("none"));

    auto watcher = ctl({QStringLiteral("watch"), QStringLiteral("test.Watched")});
    ASSERT_TRUE(watcher->waitForOutput(QStringLiteral("watching")));
    auto post = ctl({QStringLiteral("post"), QStringLiteral("test.Watched"),
                     QStringLiteral("--info"), QStringLiteral("colour=blue")});
    ASSERT_TRUE(post->finished());
    EXPECT_TRUE(watcher->waitForOutput(QStringLiteral("colour = blue;")));
    EXPECT_TRUE(watcher->stop(SIGINT));
    EXPECT_EQ(watcher->exitCode(), 0);
}

TEST_F(SwitchboardTest, OnlyTheCurrentConnectionsLossCallsTheInvalidationHandler)
{
    auto first = ctl({QStringLiteral("serve"), QStringLiteral("test.swap")});
    ASSERT_TRUE(first->waitForOutput(QStringLiteral("serving")));
    const auto old = waitForEndpoint(QStringLiteral("test.swap"), true);
    ASSERT_TRUE(old.has_value());
    const auto connection = KSConnection::connectionWithPublishedName(
        QStringLiteral("test.swap"), 0, QStringLiteral("KSComponentServing"));
    std::atomic<int> lost{0};
    connection->setInvalidationHandler([&lost] { ++lost; });
    ASSERT_TRUE(connection->ping());

    connection->disconnect();
    auto second = ctl({QStringLiteral("serve"), QStringLiteral("test.swap")});
    ASSERT_TRUE(second->waitForOutput(QStringLiteral("serving")));
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return KSPublishedConnection::lookUpEndpoint(QStringLiteral("test.swap")) != old; },
        30000));
    ASSERT_TRUE(connection->ping());

    ASSERT_TRUE(first->stop(SIGKILL));  // the old candidate's peer goes first...
    ASSERT_TRUE(second->stop(SIGKILL)); // ...then the current one's
    ASSERT_TRUE(QTest::qWaitFor([&] { return lost >= 1; }, 30000));
    EXPECT_FALSE(connection->connected());
    EXPECT_EQ(lost, 1);
}
