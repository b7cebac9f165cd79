#include "core/WTUserPreferences.h"

#include "core/PreferenceStore.h"
#include "core/PropertyList.h"
#include "core/RecordingScheduler.h"
#include "support/RecordingLogSink.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLockFile>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {
using namespace std::chrono_literals;

const QString& kMonitor = WTUserPreferences::kMonitorDomain;
const QString& kClient = WTUserPreferences::kClientDomain;

class WTUserPreferencesTest : public ::testing::Test
{
protected:
    QString folder() const { return m_dir.path() + QStringLiteral("/Kestrom"); }
    QString path(const QString& domain) const
    {
        return folder() + QLatin1Char('/') + domain + QStringLiteral(".plist");
    }

    // What the next process would read.
    QVariant onDisk(const QString& key, const QString& domain) const
    {
        return PreferenceStore(folder()).value(key, domain);
    }

    QTemporaryDir m_dir;
    RecordingScheduler m_timer;
    std::shared_ptr<PreferenceStore> m_store = std::make_shared<PreferenceStore>(folder());
    WTUserPreferences m_preferences{m_store, m_timer.scheduler()};
};

using WTUserPreferencesWrites = WTUserPreferencesTest;
using WTUserPreferencesReads = WTUserPreferencesTest;
} // namespace

TEST_F(WTUserPreferencesWrites, SettingTheStoredValueAnswersNoAndSchedulesNothing)
{
    ASSERT_TRUE(m_preferences.setInteger(5, QStringLiteral("k"), kMonitor));
    m_timer.runPending();
    ASSERT_EQ(m_timer.count(), 1);

    EXPECT_FALSE(m_preferences.setInteger(5, QStringLiteral("k"), kMonitor));
    EXPECT_FALSE(m_preferences.setValue(5, QStringLiteral("k"), kMonitor));
    EXPECT_FALSE(m_preferences.setValue(QVariant(), QStringLiteral("never set"), kMonitor));
    EXPECT_EQ(m_timer.count(), 1);
    EXPECT_FALSE(m_store->hasUnsynchronizedChanges(kMonitor));
    // A value of another kind is a change.
    EXPECT_TRUE(m_preferences.setDouble(5.0, QStringLiteral("k"), kMonitor));
    EXPECT_TRUE(m_preferences.setBool(true, QStringLiteral("k"), kMonitor));
    EXPECT_TRUE(m_preferences.setValue(QStringLiteral("1"), QStringLiteral("k"), kMonitor));
    EXPECT_TRUE(m_preferences.setValue(QVariant(), QStringLiteral("k"), kMonitor));
    EXPECT_FALSE(m_preferences.valueForKey(QStringLiteral("k"), kMonitor).isValid());
}

TEST_F(WTUserPreferencesWrites, WritesToTwoDomainsAreFlushedTogetherOnceAfterTheDelay)
{
    ASSERT_TRUE(m_preferences.setBool(true, QStringLiteral("first"), kMonitor));
    ASSERT_EQ(m_timer.count(), 1);
    EXPECT_EQ(m_timer.delay(0), 2000ms);
    // A second later, within the window: no second flush is scheduled.
    ASSERT_TRUE(m_preferences.setBool(true, QStringLiteral("second"), kClient));
    EXPECT_EQ(m_timer.count(), 1);
    EXPECT_FALSE(QFile::exists(path(kMonitor)));
    EXPECT_FALSE(QFile::exists(path(kClient)));

    m_timer.runPending();
    EXPECT_TRUE(PropertyList::isEqual(onDisk(QStringLiteral("first"), kMonitor), true));
    EXPECT_TRUE(PropertyList::isEqual(onDisk(QStringLiteral("second"), kClient), true));
    EXPECT_EQ(m_timer.count(), 1);

    ASSERT_TRUE(m_preferences.setBool(false, QStringLiteral("first"), kMonitor));
    ASSERT_EQ(m_timer.count(), 2);
    EXPECT_EQ(m_timer.delay(1), 2000ms);
}

TEST_F(WTUserPreferencesWrites, SynchronizeAtExitWritesWhatIsStillPending)
{
    ASSERT_TRUE(m_preferences.setDouble(0.5, QStringLiteral("k"), kMonitor));
    m_preferences.synchronize();
    EXPECT_TRUE(PropertyList::isEqual(onDisk(QStringLiteral("k"), kMonitor), 0.5));
    // The scheduled flush then finds nothing to do.
    m_timer.runPending();
    EXPECT_FALSE(m_store->hasUnsynchronizedChanges(kMonitor));
}

TEST_F(WTUserPreferencesWrites, WritesFromManyThreadsScheduleOneFlushOfEverything)
{
    constexpr int kThreads = 6;
    constexpr int kCount = 40;
    std::vector<std::unique_ptr<QThread>> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back(QThread::create([this, t] {
            const QString& domain = t % 2 == 0 ? kMonitor : kClient;
            for (int i = 0; i < kCount; ++i) {
                m_preferences.setInteger(i, QStringLiteral("t%1-%2").arg(t).arg(i), domain);
            }
        }));
        threads.back()->start();
    }
    for (const auto& thread : threads) {
        ASSERT_TRUE(thread->wait(60'000));
    }
    EXPECT_EQ(m_timer.count(), 1);
    m_timer.runPending();
    EXPECT_EQ(PreferenceStore(folder()).values(kMonitor).size(), kThreads / 2 * kCount);
    EXPECT_EQ(PreferenceStore(folder()).values(kClient).size(), kThreads / 2 * kCount);
}

TEST_F(WTUserPreferencesWrites, AFailedFlushIsRetriedByTheNextOne)
{
    RecordingLogSink sink;
    m_store->setLockTimeout(0ms);
    QDir().mkpath(folder());
    QLockFile held(path(kMonitor) + QStringLiteral(".lock"));
    ASSERT_TRUE(held.tryLock(0));
    ASSERT_TRUE(m_preferences.setInteger(1, QStringLiteral("k"), kMonitor));
    m_timer.runPending();
    EXPECT_FALSE(QFile::exists(path(kMonitor)));
    EXPECT_EQ(sink.lines().size(), 1);

    held.unlock();
    ASSERT_TRUE(m_preferences.setInteger(1, QStringLiteral("k"), kClient));
    m_timer.runPending();
    EXPECT_TRUE(PropertyList::isEqual(onDisk(QStringLiteral("k"), kMonitor), qint64(1)));
    EXPECT_TRUE(PropertyList::isEqual(onDisk(QStringLiteral("k"), kClient), qint64(1)));
}

TEST_F(WTUserPreferencesWrites, AFlushScheduledForAnObjectNowGoneDoesNothing)
{
    RecordingScheduler timer;
    {
        WTUserPreferences shortLived(m_store, timer.scheduler());
        ASSERT_TRUE(shortLived.setInteger(1, QStringLiteral("k"), kMonitor));
    }
    timer.runPending();
    EXPECT_FALSE(QFile::exists(path(kMonitor)));
}

TEST_F(WTUserPreferencesWrites, TheDefaultSchedulerRunsTheTaskOnTheApplicationThread)
{
    std::atomic<QThread*> ranOn{nullptr};
    std::unique_ptr<QThread> worker(QThread::create([&ranOn] {
        WTUserPreferences::mainThreadScheduler()(10ms,
                                                 [&ranOn] { ranOn = QThread::currentThread(); });
    }));
    worker->start();
    ASSERT_TRUE(worker->wait(10'000));
    ASSERT_TRUE(QTest::qWaitFor([&ranOn] { return ranOn.load() != nullptr; }, 10'000));
    EXPECT_EQ(ranOn.load(), QCoreApplication::instance()->thread());
}

TEST_F(WTUserPreferencesReads, TypedReadsConvertOrFallBackToTheDefault)
{
    m_preferences.setValue(QStringLiteral("YES"), QStringLiteral("text yes"), kMonitor);
    m_preferences.setValue(QStringLiteral("soon"), QStringLiteral("text"), kMonitor);
    m_preferences.setDouble(7.75, QStringLiteral("real"), kMonitor);
    m_preferences.setValue(QByteArray("12"), QStringLiteral("data"), kMonitor);

    EXPECT_TRUE(m_preferences.boolForKey(QStringLiteral("text yes"), kMonitor));
    EXPECT_FALSE(m_preferences.boolForKey(QStringLiteral("absent"), kMonitor));
    EXPECT_TRUE(m_preferences.boolForKey(QStringLiteral("absent"), kMonitor, true));
    EXPECT_TRUE(m_preferences.boolForKey(QStringLiteral("text"), kMonitor, true));
    EXPECT_EQ(m_preferences.integerForKey(QStringLiteral("real"), kMonitor), 7);
    EXPECT_EQ(m_preferences.integerForKey(QStringLiteral("absent"), kMonitor), 0);
    EXPECT_EQ(m_preferences.integerForKey(QStringLiteral("data"), kMonitor, 9), 9);
    EXPECT_EQ(m_preferences.doubleForKey(QStringLiteral("real"), kMonitor), 7.75);
    EXPECT_EQ(m_preferences.doubleForKey(QStringLiteral("text"), kMonitor, 2.5), 2.5);
    EXPECT_EQ(m_preferences.valueForKey(QStringLiteral("absent"), kMonitor, 3), QVariant(3));
    EXPECT_EQ(m_preferences.valueForKey(QStringLiteral("text"), kMonitor, 3).toString(),
              QStringLiteral("soon"));
}

TEST_F(WTUserPreferencesReads, ClampedReadsStayWithinTheRangeDefaultIncluded)
{
    m_preferences.setInteger(50, QStringLiteral("high"), kMonitor);
    m_preferences.setInteger(-50, QStringLiteral("low"), kMonitor);
    m_preferences.setInteger(5, QStringLiteral("inside"), kMonitor);
    m_preferences.setValue(QStringLiteral("many"), QStringLiteral("text"), kMonitor);

    EXPECT_EQ(m_preferences.integerForKey(QStringLiteral("high"), kMonitor, 3, 1, 10), 10);
    EXPECT_EQ(m_preferences.integerForKey(QStringLiteral("low"), kMonitor, 3, 1, 10), 1);
    EXPECT_EQ(m_preferences.integerForKey(QStringLiteral("inside"), kMonitor, 3, 1, 10), 5);
    EXPECT_EQ(m_preferences.integerForKey(QStringLiteral("absent"), kMonitor, 99, 1, 10), 10);
    EXPECT_EQ(m_preferences.integerForKey(QStringLiteral("text"), kMonitor, -4, 1, 10), 1);

    EXPECT_EQ(m_preferences.doubleForKey(QStringLiteral("high"), kMonitor, 0.5, 0.0, 1.0), 1.0);
    EXPECT_EQ(m_preferences.doubleForKey(QStringLiteral("low"), kMonitor, 0.5, 0.0, 1.0), 0.0);
    EXPECT_EQ(m_preferences.doubleForKey(QStringLiteral("absent"), kMonitor, 0.5, 0.0, 1.0), 0.5);
    EXPECT_EQ(m_preferences.doubleForKey(QStringLiteral("absent"), kMonitor, 7.0, 0.0, 1.0), 1.0);
}
