#include "messaging/KSConnection.h"

#include "messaging/MessagingThread.h"

#include <QDBusConnectionInterface>
#include <QSemaphore>
#include <QTest>
#include <atomic>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
// Holds the connection lock while it makes its candidates, as verification does, and meanwhile
// waits for the messaging thread to ask for the connection.
class ConnectionMadeWhileTheMessagingThreadAsks : public KSConnection
{
public:
    using KSConnection::KSConnection;
    ~ConnectionMadeWhileTheMessagingThreadAsks() override
    {
        if (!messagingThreadWasFree) {
            m_asked.acquire(); // a question that waited must end before the connection goes
        }
    }

    bool messagingThreadWasFree = false;

protected:
    std::vector<Candidate> makeConnections() override
    {
        MessagingThread::instance().post([this] {
            EXPECT_EQ(serviceProxy(), nullptr);
            EXPECT_FALSE(connected());
            m_asked.release();
        });
        messagingThreadWasFree = m_asked.tryAcquire(1, 30000);
        return {};
    }

private:
    QSemaphore m_asked;
};

// Offers a candidate whose peer is already gone when the connection takes it.
class ConnectionToAPeerLostBeforeItWasTaken : public KSConnection
{
public:
    using KSConnection::KSConnection;

protected:
    std::vector<Candidate> makeConnections() override
    {
        auto candidate =
            std::make_shared<PlatformConnection>(u"com.kestrom.test.nobody"_s, u"/"_s, 0);
        candidate->resume();
        // The answer that there is no owner is handled before this later round trip ends.
        MessagingThread::instance().connection().interface()->isServiceRegistered(
            u"org.freedesktop.DBus"_s);
        MessagingThread::instance().runAndWait([] {});
        return {candidate};
    }
};
} // namespace

TEST(KSConnection, TheMessagingThreadNeverWaitsForAConnectionBeingMade)
{
    const auto connection =
        std::make_shared<ConnectionMadeWhileTheMessagingThreadAsks>(0, u"KSComponentServing"_s);
    connection->connect();
    EXPECT_TRUE(connection->messagingThreadWasFree);
}

TEST(KSConnection, APeerLostBeforeItsConnectionWasTakenStillEndsIt)
{
    const auto connection =
        std::make_shared<ConnectionToAPeerLostBeforeItWasTaken>(0, u"KSComponentServing"_s);
    connection->setVerifyConnection(false); // taken as it is, so only the loss can end it
    std::atomic<int> lost{0};
    connection->setInvalidationHandler([&lost] { ++lost; });
    connection->connect();
    EXPECT_TRUE(QTest::qWaitFor([&] { return lost == 1; }, 30000));
    EXPECT_FALSE(connection->connected());
}
