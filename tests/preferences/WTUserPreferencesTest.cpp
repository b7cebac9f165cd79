#include "preferences/WTUserPreferences.h"

#include "preferences/PreferenceStore.h"
#include "preferences/PropertyList.h"
#include "preferences/RecordingScheduler.h"
#include "support/RecordingLogSink.h"

#include <QFile>
#include <QLockFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>

using namespace Qt::StringLiterals;

namespace {
using namespace std::chrono_literals;

const QString& kMonitor = WTUserPreferences::kMonitorDomain;
const QString& kClient = WTUserPreferences::kClientDomain;

class WTUserPreferencesTest : public ::testing::Test
{
protected:
    QString folder() const { return m_dir.path() + u"/Kestrom"_s; }
    QString path(const QString& domain) const
    {
        return folder() + QLatin1Char('/') + domain + u".plist"_s;
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
} // namespace

TEST_F(WTUserPreferencesTest, SettingTheStoredValueAnswersNoAndSchedulesNothing)
{
    ASSERT_TRUE(m_preferences.setInteger(5, u"k"_s, kMonitor));
    m_preferences.synchronize();
    EXPECT_TRUE(PropertyList::isEqual(onDisk(u"k"_s, kMonitor), 5));
    m_timer.runPending();
    EXPECT_FALSE(m_store->hasUnsynchronizedChanges(kMonitor));

    EXPECT_FALSE(m_preferences.setValue(5, u"k"_s, kMonitor));
    EXPECT_FALSE(m_preferences.setValue(QVariant(), u"never set"_s, kMonitor));
    EXPECT_EQ(m_timer.count(), 1);
    EXPECT_FALSE(m_store->hasUnsynchronizedChanges(kMonitor));
    // A value of another kind is a change.
    EXPECT_TRUE(m_preferences.setDouble(5.0, u"k"_s, kMonitor));
    EXPECT_TRUE(m_preferences.setBool(true, u"k"_s, kMonitor));
    EXPECT_TRUE(m_preferences.setValue(u"1"_s, u"k"_s, kMonitor));
    EXPECT_TRUE(m_preferences.setValue(QVariant(), u"k"_s, kMonitor));
    EXPECT_FALSE(m_preferences.valueForKey(u"k"_s, kMonitor).isValid());
}

TEST_F(WTUserPreferencesTest, WritesToTwoDomainsAreFlushedTogetherAndAFailedFlushRetried)
{
    ASSERT_TRUE(m_preferences.setBool(true, u"first"_s, kMonitor));
    // A second later, within the window: no second flush is scheduled.
    ASSERT_TRUE(m_preferences.setBool(true, u"second"_s, kClient));
    EXPECT_EQ(m_timer.delays, QList{2000ms});
    EXPECT_FALSE(QFile::exists(path(kMonitor)));
    EXPECT_FALSE(QFile::exists(path(kClient)));

    m_timer.runPending();
    EXPECT_TRUE(PropertyList::isEqual(onDisk(u"first"_s, kMonitor), true));
    EXPECT_TRUE(PropertyList::isEqual(onDisk(u"second"_s, kClient), true));

    // The monitor's file is locked by another: this flush fails, the next one retries it.
    RecordingLogSink sink;
    m_store->setLockTimeout(0ms);
    QLockFile held(path(kMonitor) + u".lock"_s);
    ASSERT_TRUE(held.tryLock(0));
    ASSERT_TRUE(m_preferences.setBool(false, u"first"_s, kMonitor));
    EXPECT_EQ(m_timer.delays, QList({2000ms, 2000ms}));
    m_timer.runPending();
    EXPECT_TRUE(PropertyList::isEqual(onDisk(u"first"_s, kMonitor), true));
    EXPECT_EQ(sink.lines().size(), 1);
    held.unlock();
    ASSERT_TRUE(m_preferences.setInteger(1, u"k"_s, kClient));
    m_timer.runPending();
    EXPECT_TRUE(PropertyList::isEqual(onDisk(u"first"_s, kMonitor), false));
    EXPECT_TRUE(PropertyList::isEqual(onDisk(u"k"_s, kClient), qint64(1)));
}

TEST_F(WTUserPreferencesTest, TypedReadsConvertClampOrFallBackToTheDefault)
{
    m_preferences.setValue(u"YES"_s, u"text yes"_s, kMonitor);
    m_preferences.setValue(u"soon"_s, u"text"_s, kMonitor);
    m_preferences.setDouble(7.75, u"real"_s, kMonitor);
    m_preferences.setValue(QByteArray("12"), u"data"_s, kMonitor);
    m_preferences.setInteger(50, u"high"_s, kMonitor);
    m_preferences.setInteger(-50, u"low"_s, kMonitor);
    EXPECT_TRUE(m_preferences.boolForKey(u"text yes"_s, kMonitor));
    EXPECT_FALSE(m_preferences.boolForKey(u"absent"_s, kMonitor));
    EXPECT_TRUE(m_preferences.boolForKey(u"text"_s, kMonitor, true));
    EXPECT_EQ(m_preferences.valueForKey(u"absent"_s, kMonitor, 3), QVariant(3));
    EXPECT_EQ(m_preferences.valueForKey(u"text"_s, kMonitor, 3).toString(), u"soon"_s);
    EXPECT_EQ(m_preferences.integerForKey(u"absent"_s, kMonitor), 0);
    EXPECT_EQ(m_preferences.doubleForKey(u"real"_s, kMonitor, 2.5), 7.75);

    // Key, fallback, minimum, maximum and what the read gives.
    const std::tuple<QString, qint64, qint64, qint64, qint64> integers[] = {
        {u"real"_s, 0, 0, 100, 7},    {u"absent"_s, 0, -9, 9, 0}, {u"data"_s, 9, 0, 99, 9},
        {u"high"_s, 3, 1, 10, 10},    {u"low"_s, 3, 1, 10, 1},    {u"real"_s, 3, 1, 10, 7},
        {u"absent"_s, 99, 1, 10, 10}, {u"text"_s, -4, 1, 10, 1}};
    for (const auto& [key, fallback, minimum, maximum, expected] : integers) {
        EXPECT_EQ(m_preferences.integerForKey(key, kMonitor, fallback, minimum, maximum), expected)
            << key.toStdString() << " " << fallback;
    }
    const std::tuple<QString, double, double, double, double> doubles[] = {
        {u"real"_s, 0, 0, 100, 7.75}, {u"text"_s, 2.5, 0, 9, 2.5},   {u"high"_s, 0.5, 0, 1, 1},
        {u"low"_s, 0.5, 0, 1, 0},     {u"absent"_s, 0.5, 0, 1, 0.5}, {u"absent"_s, 7, 0, 1, 1}};
    for (const auto& [key, fallback, minimum, maximum, expected] : doubles) {
        EXPECT_EQ(m_preferences.doubleForKey(key, kMonitor, fallback, minimum, maximum), expected)
            << key.toStdString() << " " << fallback;
    }
}
