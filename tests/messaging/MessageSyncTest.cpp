#include "messaging/MessageSync.h"

#include <atomic>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <thread>

TEST(MessageSync, ZeroIntervalIsTrueOnlyWhenTheReplyHasArrived)
{
    MessageSync lock;
    EXPECT_FALSE(lock.waitForMessageReplyBeforeInterval(0));
    lock.messageReplied();
    EXPECT_TRUE(lock.waitForMessageReplyBeforeInterval(0));
    lock.rearmMessageSync();
    EXPECT_FALSE(lock.waitForMessageReplyBeforeInterval(0));
    EXPECT_FALSE(lock.waitForMessageReplyBeforeInterval(std::nan("")));
}

// A waiter also sees the reply stored before it was signalled.
TEST(MessageSync, AnOpenBoundedOrInfiniteWaitEndsWhenTheReplyComesFromAnotherThread)
{
    for (const double seconds : {-1.0, 600.0, std::numeric_limits<double>::infinity()}) {
        const auto lock = MessageSync::messageLock();
        int reply = 0;
        std::thread replier([&] {
            reply = 42;
            lock->messageReplied();
        });
        if (seconds < 0) { // the wait without a bound
            lock->waitForMessageReply();
        } else {
            EXPECT_TRUE(lock->waitForMessageReplyBeforeInterval(seconds)) << seconds;
        }
        EXPECT_EQ(reply, 42) << seconds;
        replier.join();
        EXPECT_EQ(lock->condition(), MessageSync::kReplied) << seconds;
    }
}

TEST(MessageSync, TransitionsRespectTheCurrentCondition)
{
    MessageSync lock(3);
    EXPECT_FALSE(lock.conditionallyTranstionFrom(1, 2));
    EXPECT_EQ(lock.condition(), 3);
    EXPECT_TRUE(lock.conditionallyTranstionFrom(3, 4));
    EXPECT_EQ(lock.condition(), 4);

    std::atomic<bool> moved{false};
    std::thread waiter([&] {
        lock.transitionFromCondition(5, 6);
        moved = true;
    });
    lock.sleepUntilCondition(4);
    lock.transitionToCondition(5);
    lock.sleepUntilCondition(6);
    waiter.join();
    EXPECT_TRUE(moved);
}
