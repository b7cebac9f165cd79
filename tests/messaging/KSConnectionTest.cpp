#include "messaging/KSConnection.h"

#include "messaging/MessagingThread.h"

#include <QSemaphore>
#include <gtest/gtest.h>

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
} // namespace

TEST(KSConnection, TheMessagingThreadNeverWaitsForAConnectionBeingMade)
{
    const auto connection = std::make_shared<ConnectionMadeWhileTheMessagingThreadAsks>(
        0, QStringLiteral("KSComponentServing"));
    connection->connect();
    EXPECT_TRUE(connection->messagingThreadWasFree);
}
