#include "foundation/MainQueue.h"

#include "foundation/NotificationCenter.h"

#include <QCoreApplication>
#include <QTest>
#include <QThread>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>

using namespace Qt::StringLiterals;

namespace {
// Records the thread it dies on.
struct Heavy
{
    explicit Heavy(std::atomic<QThread*>* diedOn)
        : m_diedOn(diedOn)
    {}
    ~Heavy() { m_diedOn->store(QThread::currentThread()); }
    std::atomic<QThread*>* m_diedOn;
};
} // namespace

TEST(MainQueue, SyncFromAWorkerRunsOnTheMainThreadBeforeReturning)
{
    std::atomic<bool> ranOnMain{false};
    std::atomic<bool> returned{false};
    std::thread worker([&] {
        MainQueue::dispatchMainSync([&] { ranOnMain = MainQueue::isMainThread(); });
        returned = true;
    });
    ASSERT_TRUE(QTest::qWaitFor([&] { return returned.load(); }, 30000));
    worker.join();
    EXPECT_TRUE(ranOnMain);
}

TEST(MainQueue, AsyncIsQueuedEvenOnTheMainThreadAndSoonIsNot)
{
    int order = 0;
    int asyncRan = 0;
    int soonRan = 0;
    MainQueue::dispatchMainAsync([&] { asyncRan = ++order; });
    MainQueue::dispatchMainSoon([&] { soonRan = ++order; });
    EXPECT_EQ(soonRan, 1);
    EXPECT_EQ(asyncRan, 0);
    QCoreApplication::processEvents();
    EXPECT_EQ(asyncRan, 2);
}

// Off the main thread it does nothing: there the caller's own reference is the last one.
TEST(MainQueue, ReleaseInBackgroundDropsTheLastReferenceOffTheMainThreadOnlyFromIt)
{
    std::atomic<QThread*> diedOn{nullptr};
    std::thread worker([&] {
        auto heavy = std::make_shared<Heavy>(&diedOn);
        MainQueue::releaseInBackground(heavy);
    });
    worker.join();
    EXPECT_NE(diedOn.load(), nullptr);

    diedOn = nullptr;
    MainQueue::releaseInBackground(std::make_shared<Heavy>(&diedOn));
    EXPECT_EQ(diedOn.load(), nullptr); // kept until the end of this turn
    ASSERT_TRUE(QTest::qWaitFor([&] { return diedOn.load() != nullptr; }, 30000));
    EXPECT_NE(diedOn.load(), QCoreApplication::instance()->thread());
}

TEST(NotificationCenter, ObserversMatchNameAndObjectAndCanBeRemoved)
{
    NotificationCenter center;
    int a = 0;
    int b = 0;
    int any = 0;
    const int first = 1;
    const int second = 2;
    center.addObserver(u"Changed"_s, &first, [&](auto&&...) { ++a; });
    const int token = center.addObserver(u"Changed"_s, &second, [&](auto&&...) { ++b; });
    center.addObserver(u"Changed"_s, nullptr, [&](auto&&...) { ++any; });
    center.post(u"Changed"_s, &first);
    center.post(u"Other"_s, &first);
    center.removeObserver(token);
    center.post(u"Changed"_s, &second);
    EXPECT_EQ(a, 1);
    EXPECT_EQ(b, 0);
    EXPECT_EQ(any, 2);
}
