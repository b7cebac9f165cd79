#include "messaging/StringPool.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

TEST(StringPool, KeepsOneStringPerObjectNotPerText)
{
    StringPool pool;
    const QString original = u"capture"_s.repeated(2);
    const QString copy = original; // shares the text: the same object to the pool
    const QString pooled = pool.insertString(original);
    EXPECT_EQ(pool.insertString(copy).constData(), pooled.constData());
    EXPECT_EQ(pool.count(), 1);

    const QString first = QString::fromUtf8("verify");
    const QString second = QString::fromUtf8("verify");
    ASSERT_NE(first.constData(), second.constData());
    pool.insertString(first);
    pool.insertString(second);
    EXPECT_EQ(pool.count(), 3);
    EXPECT_EQ(pool.stringWithBytes("verify", 6), u"verify"_s);
    EXPECT_EQ(pool.count(), 4);
    EXPECT_EQ(StringPool::stringWithUTF8Bytes("héllo", 6), QString::fromUtf8("héllo"));
}

TEST(StringPool, ConcurrentInsertionsAreAllKept)
{
    StringPool pool;
    constexpr int kThreads = 4;
    constexpr int kEach = 2000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&pool, t] {
            for (int i = 0; i < kEach; ++i) {
                pool.insertString(QString::number(t * kEach + i));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(pool.count(), kThreads * kEach);
}
