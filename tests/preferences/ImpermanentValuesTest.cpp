#include "preferences/ImpermanentValues.h"

#include "preferences/MonitorDefaults.h"
#include "preferences/PreferenceStore.h"
#include "preferences/PropertyList.h"
#include "preferences/RecordingScheduler.h"

#include <QTemporaryDir>
#include <QTimeZone>
#include <gtest/gtest.h>
#include <memory>

namespace {
constexpr qint64 kDay = 86'400;
const QString kKey = QStringLiteral("lastSize");
const QString kArchive = QStringLiteral("archive-1");

class ImpermanentValuesTest : public ::testing::Test
{
protected:
    QVariantMap record(const QString& identifier,
                       const QString& nameSpace = ImpermanentValues::kDefaultNameSpace) const
    {
        return m_defaults.objectForKey(nameSpace).toMap().value(identifier).toMap();
    }

    QDateTime stamp(const QString& identifier) const
    {
        return record(identifier).value(ImpermanentValues::kTimestampKey).toDateTime();
    }

    void advanceDays(qint64 days) { m_now = m_now.addSecs(days * kDay); }

    // The records of the default name space as the next start of the monitor finds them.
    QVariantMap nextStart()
    {
        m_preferences.synchronize();
        return PreferenceStore(m_dir.path())
            .value(ImpermanentValues::kDefaultNameSpace, WTUserPreferences::kMonitorDomain)
            .toMap();
    }

    QTemporaryDir m_dir;
    QDateTime m_now{QDate(2026, 1, 10), QTime(8, 30, 0), QTimeZone::utc()};
    RecordingScheduler m_timer;
    WTUserPreferences m_preferences{std::make_shared<PreferenceStore>(m_dir.path()),
                                    m_timer.scheduler()};
    MonitorDefaults m_defaults{m_preferences};
    ImpermanentValues m_values{m_defaults, [this] {
                                   return m_now;
                               }};
};
} // namespace

TEST_F(ImpermanentValuesTest, AValueIsKeptWithTheTimeOfItsLastChange)
{
    m_values.setImpermanentValue(1024, kKey, kArchive);
    m_values.setImpermanentValue(2, QStringLiteral("kept"), kArchive);
    EXPECT_TRUE(PropertyList::isEqual(m_values.impermanentValueForKey(kKey, kArchive), 1024));
    EXPECT_EQ(stamp(kArchive), m_now);
    EXPECT_FALSE(m_values.impermanentValueForKey(kKey, QStringLiteral("other")).isValid());
    EXPECT_FALSE(m_values.impermanentValueForKey(QStringLiteral("other"), kArchive).isValid());
    EXPECT_TRUE(PropertyList::isEqual(nextStart().value(kArchive).toMap().value(kKey), 1024));

    // Setting the current value again neither stamps nor writes.
    const QDateTime written = m_now;
    advanceDays(10);
    m_values.setImpermanentValue(1024, kKey, kArchive);
    EXPECT_EQ(stamp(kArchive), written);
    EXPECT_FALSE(m_preferences.store().hasUnsynchronizedChanges(WTUserPreferences::kMonitorDomain));
    // An invalid value removes the key and stamps the record.
    m_values.setImpermanentValue(QVariant(), kKey, kArchive);
    EXPECT_FALSE(record(kArchive).contains(kKey));
    EXPECT_TRUE(record(kArchive).contains(QStringLiteral("kept")));
    EXPECT_EQ(stamp(kArchive), m_now);
}

TEST_F(ImpermanentValuesTest, ARecordIsStampedAgainWhenReadOnlyAfter28Days)
{
    m_values.setImpermanentValue(QStringLiteral("v"), kKey, kArchive);
    const QDateTime written = m_now;
    m_now = m_now.addSecs(ImpermanentValues::kRestampAge);
    EXPECT_EQ(m_values.impermanentValueForKey(kKey, kArchive).toString(), QStringLiteral("v"));
    EXPECT_EQ(stamp(kArchive), written);
    m_now = written.addSecs(30 * kDay);
    EXPECT_EQ(m_values.impermanentValueForKey(kKey, kArchive).toString(), QStringLiteral("v"));
    EXPECT_EQ(stamp(kArchive), m_now);
    EXPECT_EQ(
        nextStart().value(kArchive).toMap().value(ImpermanentValues::kTimestampKey).toDateTime(),
        m_now);
}

TEST_F(ImpermanentValuesTest, RecordsUntouchedFor200DaysGoAtTheNextStart)
{
    m_values.setImpermanentValue(1, kKey, QStringLiteral("old"));
    advanceDays(170);
    m_values.setImpermanentValue(2, kKey, QStringLiteral("recent"));
    QVariantMap space = m_defaults.objectForKey(ImpermanentValues::kDefaultNameSpace).toMap();
    space.insert(QStringLiteral("unstamped"), QVariantMap{{kKey, 3}});
    m_defaults.setObject(space, ImpermanentValues::kDefaultNameSpace);
    advanceDays(30);

    m_values.cullOrphanedImpermanentValuesInNameSpace();
    const QVariantMap stored = nextStart();
    EXPECT_FALSE(stored.contains(QStringLiteral("old")));
    EXPECT_TRUE(stored.contains(QStringLiteral("recent")));
    EXPECT_TRUE(stored.contains(QStringLiteral("unstamped")));
    // With nothing more to cull, nothing is written.
    m_values.cullOrphanedImpermanentValuesInNameSpace(ImpermanentValues::kDefaultNameSpace);
    EXPECT_FALSE(m_preferences.store().hasUnsynchronizedChanges(WTUserPreferences::kMonitorDomain));
}

TEST_F(ImpermanentValuesTest, NameSpacesAreKeptAndCulledApart)
{
    const QString space = QStringLiteral("KSStatusMirrors");
    m_values.setImpermanentValue(1, kKey, kArchive, space);
    m_values.setImpermanentValue(2, kKey, kArchive);
    EXPECT_TRUE(PropertyList::isEqual(m_values.impermanentValueForKey(kKey, kArchive, space), 1));
    EXPECT_TRUE(PropertyList::isEqual(m_values.impermanentValueForKey(kKey, kArchive), 2));
    advanceDays(200);
    m_values.cullOrphanedImpermanentValuesInNameSpace(space);
    EXPECT_TRUE(record(kArchive, space).isEmpty());
    EXPECT_FALSE(record(kArchive).isEmpty());
}
