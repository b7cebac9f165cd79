#include "preferences/ImpermanentValues.h"

#include "preferences/MonitorDefaults.h"
#include "preferences/PreferenceStore.h"
#include "preferences/PropertyList.h"
#include "preferences/RecordingScheduler.h"

#include <QTemporaryDir>
#include <QTimeZone>
#include <gtest/gtest.h>
#include <memory>

using namespace Qt::StringLiterals;

namespace {
constexpr qint64 kDay = 86'400;
const QString kKey = u"lastSize"_s;
const QString kArchive = u"archive-1"_s;

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

TEST_F(ImpermanentValuesTest, AValueIsKeptWithTheTimeOfItsLastChangeOrOfAReadAfter28Days)
{
    m_values.setImpermanentValue(1024, kKey, kArchive);
    m_values.setImpermanentValue(2, u"kept"_s, kArchive);
    EXPECT_TRUE(PropertyList::isEqual(m_values.impermanentValueForKey(kKey, kArchive), 1024));
    EXPECT_EQ(stamp(kArchive), m_now);
    EXPECT_FALSE(m_values.impermanentValueForKey(kKey, u"other"_s).isValid());
    EXPECT_FALSE(m_values.impermanentValueForKey(u"other"_s, kArchive).isValid());
    EXPECT_TRUE(PropertyList::isEqual(nextStart().value(kArchive).toMap().value(kKey), 1024));

    // Setting the current value again neither stamps nor writes.
    QDateTime written = m_now;
    advanceDays(10);
    m_values.setImpermanentValue(1024, kKey, kArchive);
    EXPECT_EQ(stamp(kArchive), written);
    EXPECT_FALSE(m_preferences.store().hasUnsynchronizedChanges(WTUserPreferences::kMonitorDomain));
    // An invalid value removes the key and stamps the record.
    m_values.setImpermanentValue(QVariant(), kKey, kArchive);
    EXPECT_FALSE(record(kArchive).contains(kKey));
    EXPECT_TRUE(record(kArchive).contains(u"kept"_s));
    EXPECT_EQ(stamp(kArchive), m_now);

    // Reading stamps the record again only once it is older than 28 days.
    written = m_now;
    m_now = m_now.addSecs(ImpermanentValues::kRestampAge);
    EXPECT_TRUE(PropertyList::isEqual(m_values.impermanentValueForKey(u"kept"_s, kArchive), 2));
    EXPECT_EQ(stamp(kArchive), written);
    m_now = written.addSecs(30 * kDay);
    EXPECT_TRUE(PropertyList::isEqual(m_values.impermanentValueForKey(u"kept"_s, kArchive), 2));
    EXPECT_EQ(stamp(kArchive), m_now);
    EXPECT_EQ(
        nextStart().value(kArchive).toMap().value(ImpermanentValues::kTimestampKey).toDateTime(),
        m_now);
}

TEST_F(ImpermanentValuesTest, RecordsUntouchedFor200DaysGoAtTheNextStartNameSpaceByNameSpace)
{
    const QString mirrors = u"KSStatusMirrors"_s;
    m_values.setImpermanentValue(1, kKey, u"old"_s);
    m_values.setImpermanentValue(4, kKey, u"old"_s, mirrors);
    EXPECT_TRUE(PropertyList::isEqual(m_values.impermanentValueForKey(kKey, u"old"_s), 1));
    EXPECT_TRUE(PropertyList::isEqual(m_values.impermanentValueForKey(kKey, u"old"_s, mirrors), 4));
    advanceDays(170);
    m_values.setImpermanentValue(2, kKey, u"recent"_s);
    QVariantMap space = m_defaults.objectForKey(ImpermanentValues::kDefaultNameSpace).toMap();
    space.insert(u"unstamped"_s, QVariantMap{{kKey, 3}});
    m_defaults.setObject(space, ImpermanentValues::kDefaultNameSpace);
    advanceDays(30);

    m_values.cullOrphanedImpermanentValuesInNameSpace();
    const QVariantMap stored = nextStart();
    EXPECT_FALSE(stored.contains(u"old"_s));
    EXPECT_TRUE(stored.contains(u"recent"_s));
    EXPECT_TRUE(stored.contains(u"unstamped"_s));
    EXPECT_FALSE(record(u"old"_s, mirrors).isEmpty());
    // With nothing more to cull, nothing is written.
    m_values.cullOrphanedImpermanentValuesInNameSpace(ImpermanentValues::kDefaultNameSpace);
    EXPECT_FALSE(m_preferences.store().hasUnsynchronizedChanges(WTUserPreferences::kMonitorDomain));
    m_values.cullOrphanedImpermanentValuesInNameSpace(mirrors);
    EXPECT_TRUE(record(u"old"_s, mirrors).isEmpty());
}
