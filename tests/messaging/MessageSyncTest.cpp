#include "messaging/MessageSync.h"

#include <atomic>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <thread>

TEST(MessageSync, WaiterSeesTheReplyStoredBeforeItWasSignalled)
{
    const auto lock = MessageSync::messageLock();
    int reply = 0;
    std::thread replier([&] {
        reply = 42;
        lock->messageReplied();
    });
    lock->waitForMessageReply();
    EXPECT_EQ(reply, 42);
    replier.join();
    EXPECT_EQ(lock->condition(), MessageSync::kReplied);
}

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

TEST(MessageSync, ABoundedOrInfiniteWaitEndsWhenTheReplyComesFromAnotherThread)
{
    for (const double seconds : {600.0, std::numeric_limits<double>::infinity()}) {
        MessageSync lock;
        std::thread replier([&] { lock.messageReplied(); });
        EXPECT_TRUE(lock.waitForMessageReplyBeforeInterval(seconds)) << seconds;
        replier.join();
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
