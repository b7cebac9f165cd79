#include "foundation/HumanReadableString.h"

#include "foundation/RelativeDate.h"

#include <QLocale>
#include <QTimeZone>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <limits>
#include <thread>
#include <vector>

using S = HumanReadableString;

namespace {
QDateTime local(int year, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), Qt::LocalTime);
}

void useTimeZone(const char* zone)
{
    setenv("TZ", zone, 1);
    tzset();
}

// An English reader in Berlin, with a clock the test moves.
class ReadableTextTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        useTimeZone("Europe/Berlin");
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        m_now = local(2024, 3, 5, 10, 0).toMSecsSinceEpoch();
        RelativeDate::setClock([this] { return QDateTime::fromMSecsSinceEpoch(m_now.load()); });
    }

    void TearDown() override
    {
        RelativeDate::setClock({});
        useTimeZone("Europe/Berlin");
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    }

    void setNow(const QDateTime& now) { m_now = now.toMSecsSinceEpoch(); }

    // Read by the clock from any thread.
    std::atomic<qint64> m_now{0};
};
} // namespace

class ReadableSizes : public ReadableTextTest
{};

TEST_F(ReadableSizes, CountInThousandsNotKibibytes)
{
    EXPECT_EQ(S::stringWithReadableSize(999), QStringLiteral("999 bytes"));
    EXPECT_EQ(S::stringWithReadableSize(1000), QStringLiteral("1.0 kB"));
    EXPECT_EQ(S::stringWithReadableSize(1500000), QStringLiteral("1.5 MB"));
}

TEST_F(ReadableSizes, SizesBeyondSignedRangeStillRead)
{
    EXPECT_EQ(S::stringWithReadableSize(std::numeric_limits<quint64>::max()),
              QStringLiteral("18.4 EB"));
}

class GroupedIntegers : public ReadableTextTest
{};

TEST_F(GroupedIntegers, ThousandsAreGroupedWithCommas)
{
    EXPECT_EQ(S::stringWithReadableInt(1500000), QStringLiteral("1,500,000"));
    EXPECT_EQ(S::stringWithReadableInteger(999), QStringLiteral("999"));
    EXPECT_EQ(S::stringWithReadableLongLong(1000), QStringLiteral("1,000"));
    EXPECT_EQ(S::stringWithReadableInt(0), QStringLiteral("0"));
    EXPECT_EQ(S::stringWithReadableInt(-1234), QStringLiteral("-1,234"));
}

TEST_F(GroupedIntegers, ExtremesDoNotOverflow)
{
    EXPECT_EQ(S::stringWithReadableLongLong(std::numeric_limits<qint64>::min()),
              QStringLiteral("-9,223,372,036,854,775,808"));
    EXPECT_EQ(S::stringWithReadableInt(std::numeric_limits<qint32>::min()),
              QStringLiteral("-2,147,483,648"));
}

TEST_F(GroupedIntegers, GroupingDoesNotFollowTheLocale)
{
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(S::stringWithReadableInt(1500000), QStringLiteral("1,500,000"));
}

class Ordinals : public ReadableTextTest
{};

TEST_F(Ordinals, UnitDigitPicksTheSuffix)
{
    EXPECT_EQ(S::stringWithOrdinalInteger(1), QStringLiteral("1st"));
    EXPECT_EQ(S::stringWithOrdinalInteger(2), QStringLiteral("2nd"));
    EXPECT_EQ(S::stringWithOrdinalInteger(3), QStringLiteral("3rd"));
    EXPECT_EQ(S::stringWithOrdinalInteger(4), QStringLiteral("4th"));
    EXPECT_EQ(S::stringWithOrdinalInteger(22), QStringLiteral("22nd"));
    EXPECT_EQ(S::stringWithOrdinalInteger(1000), QStringLiteral("1,000th"));
}

TEST_F(Ordinals, OnlyTenToNineteenAreTeens)
{
    EXPECT_EQ(S::stringWithOrdinalInteger(11), QStringLiteral("11th"));
    EXPECT_EQ(S::stringWithOrdinalInteger(13), QStringLiteral("13th"));
    EXPECT_EQ(S::stringWithOrdinalInteger(111), QStringLiteral("111st"));
    EXPECT_EQ(S::stringWithOrdinalInteger(112), QStringLiteral("112nd"));
    EXPECT_EQ(S::stringWithOrdinalInteger(113), QStringLiteral("113rd"));
    EXPECT_EQ(S::stringWithOrdinalInteger(-11), QStringLiteral("-11st"));
}

class ClockDurations : public ReadableTextTest
{};

TEST_F(ClockDurations, HoursAppearFromOneHourOn)
{
    EXPECT_EQ(S::stringWithReadableDuration(0), QStringLiteral("00:00"));
    EXPECT_EQ(S::stringWithReadableDuration(59), QStringLiteral("00:59"));
    EXPECT_EQ(S::stringWithReadableDuration(3599), QStringLiteral("59:59"));
    EXPECT_EQ(S::stringWithReadableDuration(3600), QStringLiteral("1:00:00"));
    EXPECT_EQ(S::stringWithReadableDuration(360061), QStringLiteral("100:01:01"));
}

TEST_F(ClockDurations, NegativeDurationsTakeAMinusSign)
{
    EXPECT_EQ(S::stringWithReadableDuration(-61), QStringLiteral("-01:01"));
    EXPECT_EQ(S::stringWithReadableDuration(-3600), QStringLiteral("-1:00:00"));
}

class UnitDurations : public ReadableTextTest
{};

TEST_F(UnitDurations, OnlyExactlyOneIsSingular)
{
    EXPECT_EQ(S::stringWithReadableDurationScale(1, RelativeDate::kHour), QStringLiteral("1 hour"));
    EXPECT_EQ(S::stringWithReadableDurationScale(0, RelativeDate::kWeek),
              QStringLiteral("0 weeks"));
    EXPECT_EQ(S::stringWithReadableDurationScale(2, RelativeDate::kYear),
              QStringLiteral("2 years"));
}

TEST_F(UnitDurations, NegativeCountsAreAgo)
{
    EXPECT_EQ(S::stringWithReadableDurationScale(-3, RelativeDate::kDay),
              QStringLiteral("3 days ago"));
    EXPECT_EQ(S::stringWithReadableDurationScale(-1, RelativeDate::kMonth),
              QStringLiteral("1 month ago"));
}

class RemainingTime : public ReadableTextTest
{};

TEST_F(RemainingTime, UnderAMinuteIsVagueUnlessPrecise)
{
    EXPECT_EQ(S::stringWithReadableRemainingTime(0, false), QString());
    EXPECT_EQ(S::stringWithReadableRemainingTime(9, false), QStringLiteral("less than 10 seconds"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(10, false), QStringLiteral("about 10 seconds"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(15, false), QStringLiteral("about 10 seconds"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(16, false), QStringLiteral("less than a minute"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(59, false), QStringLiteral("less than a minute"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(45, true), QStringLiteral("45 seconds"));
}

TEST_F(RemainingTime, NotPreciseStopsAtTheLargestUnit)
{
    EXPECT_EQ(S::stringWithReadableRemainingTime(60, false), QStringLiteral("1 minute"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(90, false), QStringLiteral("1 minute"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(3 * 86400 + 4 * 3600, false),
              QStringLiteral("3 days"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(172800, false), QStringLiteral("2 days"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(7260, false), QStringLiteral("2 hours"));
}

TEST_F(RemainingTime, PreciseWritesEveryNonZeroUnit)
{
    EXPECT_EQ(S::stringWithReadableRemainingTime(86401, true), QStringLiteral("1 day 1 second"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(90, true), QStringLiteral("1 minute 30 seconds"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(3 * 86400 + 4 * 3600, true),
              QStringLiteral("3 days 4 hours"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(3661, true),
              QStringLiteral("1 hour 1 minute 1 second"));
}

class BuildVersions : public ReadableTextTest
{};

TEST_F(BuildVersions, PackedFieldsReadAsDottedVersion)
{
    EXPECT_EQ(S::stringWithReadableBuildVersion(0x22512), QStringLiteral("2.2.5(18)"));
    EXPECT_EQ(S::stringWithReadableBuildVersion(0x22500), QStringLiteral("2.2.5"));
    EXPECT_EQ(S::stringWithReadableBuildVersion(0xABC01), QStringLiteral("10.11.12(1)"));
}

TEST_F(BuildVersions, UnknownAndInvalidValues)
{
    EXPECT_EQ(S::stringWithReadableBuildVersion(1677721), QStringLiteral("unknown"));
    EXPECT_EQ(S::stringWithReadableBuildVersion(1048576), QStringLiteral("invalid(100000)"));
    EXPECT_EQ(S::stringWithReadableBuildVersion(0xDEADBEEF), QStringLiteral("invalid(DEADBEEF)"));
}

class LegacyDateTimeText : public ReadableTextTest
{};

TEST_F(LegacyDateTimeText, MissingValueIsNull)
{
    EXPECT_EQ(S::stringWithUTCDateTime(std::nullopt), QStringLiteral("(null)"));
}

TEST_F(LegacyDateTimeText, ShownInLocalTimeWithNumericOffset)
{
    EXPECT_EQ(S::stringWithUTCDateTime(UTCDateTime{0, 2082844800, 0}),
              QStringLiteral("1970-01-01 01:00:00 +0100"));
    const QDateTime summer(QDate(2024, 7, 1), QTime(12, 0), QTimeZone::utc());
    EXPECT_EQ(S::stringWithUTCDateTime(RelativeDate::toUTCDateTime(summer)),
              QStringLiteral("2024-07-01 14:00:00 +0200"));
}

TEST_F(LegacyDateTimeText, ZonesWestOfUtcAndOffHourOffsets)
{
    const UTCDateTime epoch{0, 2082844800, 0};
    useTimeZone("America/New_York");
    EXPECT_EQ(S::stringWithUTCDateTime(epoch), QStringLiteral("1969-12-31 19:00:00 -0500"));
    useTimeZone("Asia/Kolkata");
    EXPECT_EQ(S::stringWithUTCDateTime(epoch), QStringLiteral("1970-01-01 05:30:00 +0530"));
}

class UTF8Lengths : public ReadableTextTest
{};

TEST_F(UTF8Lengths, CountsEncodedBytesNotCharacters)
{
    EXPECT_EQ(S::UTF8Length(QString()), 0);
    EXPECT_EQ(S::UTF8Length(QStringLiteral("abc")), 3);
    EXPECT_EQ(S::UTF8Length(QStringLiteral("caf\u00e9")), 5);
    EXPECT_EQ(S::UTF8Length(QStringLiteral("\u20ac")), 3);
    EXPECT_EQ(S::UTF8Length(QStringLiteral("\U0001F600")), 4);
}

TEST_F(UTF8Lengths, OverheadAddsTwoAndAMissingStringCountsTwo)
{
    const QString text = QStringLiteral("\u20ac1");
    const QString empty;
    EXPECT_EQ(S::UTF8LengthWithOverhead(&text), 6);
    EXPECT_EQ(S::UTF8LengthWithOverhead(&empty), 2);
    EXPECT_EQ(S::UTF8LengthWithOverhead(nullptr), 2);
}

// The clock stands at 2024-03-05 10:00; the dates below are far from it unless said otherwise.
class DateStyles : public ReadableTextTest
{
protected:
    const QDateTime m_date = local(2024, 1, 15, 14, 7, 9);
};

TEST_F(DateStyles, DateStylesGrowFromShortToFull)
{
    EXPECT_EQ(S::stringWithReadableDate(m_date, S::kShortStyle), QStringLiteral("1/15/24"));
    EXPECT_EQ(S::stringWithReadableDate(m_date, S::kMediumStyle), QStringLiteral("Jan 15, 2024"));
    EXPECT_EQ(S::stringWithReadableDate(m_date, S::kLongStyle), QStringLiteral("January 15, 2024"));
    EXPECT_EQ(S::stringWithReadableDate(m_date, S::kFullStyle),
              QStringLiteral("Monday, January 15, 2024"));
}

TEST_F(DateStyles, TimeStylesGrowFromShortToLong)
{
    EXPECT_EQ(S::stringWithReadableShortTime(m_date), QStringLiteral("2:07 PM"));
    EXPECT_EQ(S::stringWithReadableTime(m_date, S::kMediumStyle), QStringLiteral("2:07:09 PM"));
    EXPECT_EQ(S::stringWithReadableTime(m_date, S::kLongStyle), QStringLiteral("2:07:09 PM CET"));
}

TEST_F(DateStyles, FullDateTimeIsFullDateAndShortTime)
{
    EXPECT_EQ(S::stringWithReadableFullDateTime(m_date),
              QStringLiteral("Monday, January 15, 2024 2:07 PM"));
}

TEST_F(DateStyles, AStyleOfNoneLeavesThatPartOut)
{
    EXPECT_EQ(S::stringWithReadableDateTime(m_date, S::kNoStyle, S::kShortStyle),
              QStringLiteral("2:07 PM"));
    EXPECT_EQ(S::stringWithReadableDateTime(m_date, S::kLongStyle, S::kNoStyle),
              QStringLiteral("January 15, 2024"));
    EXPECT_EQ(S::stringWithReadableDateTime(m_date, S::kNoStyle, S::kNoStyle), QString());
}

TEST_F(DateStyles, DatesAreShownInTheLocalZone)
{
    const QDateTime lateUtc(QDate(2024, 1, 15), QTime(23, 30), QTimeZone::utc());
    EXPECT_EQ(S::stringWithReadableDateTime(lateUtc, S::kShortStyle, S::kShortStyle),
              QStringLiteral("1/16/24 12:30 AM"));
}

TEST_F(DateStyles, MissingDateIsEmpty)
{
    EXPECT_EQ(S::stringWithReadableFullDateTime({}), QString());
    EXPECT_EQ(S::stringWithReadableDate({}, S::kShortStyle), QString());
    EXPECT_EQ(S::stringWithReadableTime({}, S::kShortStyle), QString());
}

TEST_F(DateStyles, LongStyleDropsTheWeekdayWhereverTheLocalePutsIt)
{
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(S::stringWithReadableDate(m_date, S::kLongStyle), QStringLiteral("15. Januar 2024"));
    EXPECT_EQ(S::stringWithReadableTime(m_date, S::kMediumStyle), QStringLiteral("14:07:09"));
    QLocale::setDefault(QLocale(QLocale::Japanese, QLocale::Japan));
    EXPECT_EQ(S::stringWithReadableDate(m_date, S::kLongStyle),
              QStringLiteral("2024\u5e741\u670815\u65e5"));
}

class RelativeDayNames : public ReadableTextTest
{};

TEST_F(RelativeDayNames, YesterdayTodayAndTomorrowReplaceTheDate)
{
    EXPECT_EQ(S::stringWithReadableDate(local(2024, 3, 4), S::kLongStyle),
              QStringLiteral("Yesterday"));
    EXPECT_EQ(S::stringWithReadableDate(local(2024, 3, 5, 23, 59, 59), S::kLongStyle),
              QStringLiteral("Today"));
    EXPECT_EQ(
        S::stringWithReadableDateTime(local(2024, 3, 6, 8, 30), S::kFullStyle, S::kShortStyle),
        QStringLiteral("Tomorrow 8:30 AM"));
}

TEST_F(RelativeDayNames, NamesEndAtTheEdgesOfTheThreeDays)
{
    EXPECT_EQ(S::stringWithReadableDate(local(2024, 3, 3, 23, 59, 59), S::kLongStyle),
              QStringLiteral("March 3, 2024"));
    EXPECT_EQ(S::stringWithReadableDate(local(2024, 3, 6, 23, 59, 59), S::kLongStyle),
              QStringLiteral("Tomorrow"));
    EXPECT_EQ(S::stringWithReadableDate(local(2024, 3, 7), S::kLongStyle),
              QStringLiteral("March 7, 2024"));
}

TEST_F(RelativeDayNames, ShortSpringForwardDayStillEndsAtMidnight)
{
    setNow(local(2024, 3, 30, 10, 0));
    EXPECT_EQ(S::stringWithReadableDate(local(2024, 3, 31, 23, 59, 59), S::kLongStyle),
              QStringLiteral("Tomorrow"));
    EXPECT_EQ(S::stringWithReadableDate(local(2024, 4, 1), S::kLongStyle),
              QStringLiteral("April 1, 2024"));
}

TEST_F(RelativeDayNames, NamesMoveOnWhenTheClockCrossesMidnight)
{
    setNow(local(2024, 3, 5, 23, 59, 59));
    const QDateTime wednesday = local(2024, 3, 6, 12, 0);
    const QDateTime monday = local(2024, 3, 4, 12, 0);
    EXPECT_EQ(S::stringWithReadableDate(wednesday, S::kLongStyle), QStringLiteral("Tomorrow"));
    EXPECT_EQ(S::stringWithReadableDate(monday, S::kLongStyle), QStringLiteral("Yesterday"));

    setNow(local(2024, 3, 6));
    EXPECT_EQ(S::stringWithReadableDate(wednesday, S::kLongStyle), QStringLiteral("Today"));
    EXPECT_EQ(S::stringWithReadableDate(monday, S::kLongStyle), QStringLiteral("March 4, 2024"));
}

TEST_F(RelativeDayNames, ThreadsFillingTheCacheTogetherAgree)
{
    setNow(local(2024, 3, 5, 23, 59, 59));
    const QDateTime wednesday = local(2024, 3, 6, 12, 0);
    std::atomic<int> wrongNames{0};
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 4; ++reader) {
        readers.emplace_back([&] {
            for (int call = 0; call < 200; ++call) {
                if (S::stringWithReadableDate(wednesday, S::kLongStyle) !=
                    QStringLiteral("Tomorrow")) {
                    ++wrongNames;
                }
            }
        });
    }
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(wrongNames.load(), 0);
}
