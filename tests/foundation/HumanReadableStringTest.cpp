#include "foundation/HumanReadableString.h"

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

// An English reader in Berlin; the clock stands at 2024-03-05 10:00 until a test moves it.
class ReadableTextTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        useTimeZone("Europe/Berlin");
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        setNow(local(2024, 3, 5, 10, 0));
        RelativeDate::setClock([this] { return QDateTime::fromMSecsSinceEpoch(m_now.load()); });
    }
    void TearDown() override
    {
        RelativeDate::setClock({});
        useTimeZone("Europe/Berlin");
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    }
    void setNow(const QDateTime& now) { m_now = now.toMSecsSinceEpoch(); }

    std::atomic<qint64> m_now{0}; // read by the clock on any thread
    const QDateTime m_farDate = local(2024, 1, 15, 14, 7, 9);
};
} // namespace

using Numbers = ReadableTextTest;
using Durations = ReadableTextTest;
using DateStyles = ReadableTextTest;
using RelativeDayNames = ReadableTextTest;

TEST_F(Numbers, SizesCountInThousandsEvenBeyondTheSignedRange)
{
    EXPECT_EQ(S::stringWithReadableSize(999), QStringLiteral("999 bytes"));
    EXPECT_EQ(S::stringWithReadableSize(1500000), QStringLiteral("1.5 MB"));
    EXPECT_EQ(S::stringWithReadableSize(std::numeric_limits<quint64>::max()),
              QStringLiteral("18.4 EB"));
}

TEST_F(Numbers, IntegersAreGroupedWithCommasWhateverTheLocale)
{
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(S::stringWithReadableInt(1500000), QStringLiteral("1,500,000"));
    EXPECT_EQ(S::stringWithReadableInteger(0), QStringLiteral("0"));
    EXPECT_EQ(S::stringWithReadableInt(-1234), QStringLiteral("-1,234"));
    EXPECT_EQ(S::stringWithReadableLongLong(std::numeric_limits<qint64>::min()),
              QStringLiteral("-9,223,372,036,854,775,808"));
}

TEST_F(Numbers, OrdinalsTreatOnlyTenToNineteenAsTeens)
{
    EXPECT_EQ(S::stringWithOrdinalInteger(1), QStringLiteral("1st"));
    EXPECT_EQ(S::stringWithOrdinalInteger(22), QStringLiteral("22nd"));
    EXPECT_EQ(S::stringWithOrdinalInteger(13), QStringLiteral("13th"));
    EXPECT_EQ(S::stringWithOrdinalInteger(111), QStringLiteral("111st"));
    EXPECT_EQ(S::stringWithOrdinalInteger(112), QStringLiteral("112nd"));
    EXPECT_EQ(S::stringWithOrdinalInteger(113), QStringLiteral("113rd"));
    EXPECT_EQ(S::stringWithOrdinalInteger(1000), QStringLiteral("1,000th"));
}

TEST_F(Numbers, BuildVersionsUnpackOrAreUnknownOrInvalid)
{
    EXPECT_EQ(S::stringWithReadableBuildVersion(0x22512), QStringLiteral("2.2.5(18)"));
    EXPECT_EQ(S::stringWithReadableBuildVersion(0xABC00), QStringLiteral("10.11.12"));
    EXPECT_EQ(S::stringWithReadableBuildVersion(1677721), QStringLiteral("unknown"));
    EXPECT_EQ(S::stringWithReadableBuildVersion(1048576), QStringLiteral("invalid(100000)"));
}

TEST_F(Numbers, UTF8LengthCountsBytesAndAMissingStringCountsTwo)
{
    const QString text = QStringLiteral("caf\u00e9 \U0001F600");
    EXPECT_EQ(S::UTF8Length(text), 10);
    EXPECT_EQ(S::UTF8LengthWithOverhead(&text), 12);
    EXPECT_EQ(S::UTF8LengthWithOverhead(nullptr), 2);
}

TEST_F(Durations, ClockDisplayShowsHoursFromOneHourOn)
{
    EXPECT_EQ(S::stringWithReadableDuration(59), QStringLiteral("00:59"));
    EXPECT_EQ(S::stringWithReadableDuration(3599), QStringLiteral("59:59"));
    EXPECT_EQ(S::stringWithReadableDuration(3600), QStringLiteral("1:00:00"));
    EXPECT_EQ(S::stringWithReadableDuration(-61), QStringLiteral("-01:01"));
}

TEST_F(Durations, UnitCountsAreSingularOnlyForOneAndNegativeIsAgo)
{
    EXPECT_EQ(S::stringWithReadableDurationScale(-3, RelativeDate::kDay),
              QStringLiteral("3 days ago"));
    EXPECT_EQ(S::stringWithReadableDurationScale(1, RelativeDate::kHour), QStringLiteral("1 hour"));
    EXPECT_EQ(S::stringWithReadableDurationScale(0, RelativeDate::kWeek),
              QStringLiteral("0 weeks"));
}

TEST_F(Durations, RemainingTimeUnderAMinuteIsVagueUnlessPrecise)
{
    EXPECT_EQ(S::stringWithReadableRemainingTime(0, false), QString());
    EXPECT_EQ(S::stringWithReadableRemainingTime(9, false), QStringLiteral("less than 10 seconds"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(10, false), QStringLiteral("about 10 seconds"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(16, false), QStringLiteral("less than a minute"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(45, true), QStringLiteral("45 seconds"));
}

TEST_F(Durations, RemainingTimeNotPreciseStopsAtTheLargestUnit)
{
    const quint64 threeDaysFourHours = 3 * 86400 + 4 * 3600;
    EXPECT_EQ(S::stringWithReadableRemainingTime(60, false), QStringLiteral("1 minute"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(90, false), QStringLiteral("1 minute"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(172800, false), QStringLiteral("2 days"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(threeDaysFourHours, false),
              QStringLiteral("3 days"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(threeDaysFourHours, true),
              QStringLiteral("3 days 4 hours"));
    EXPECT_EQ(S::stringWithReadableRemainingTime(86401, true), QStringLiteral("1 day 1 second"));
}

TEST_F(DateStyles, DateStylesGrowFromShortToFullAndTimesFollow)
{
    EXPECT_EQ(S::stringWithReadableDate(m_farDate, S::kShortStyle), QStringLiteral("1/15/24"));
    EXPECT_EQ(S::stringWithReadableDate(m_farDate, S::kMediumStyle),
              QStringLiteral("Jan 15, 2024"));
    EXPECT_EQ(S::stringWithReadableDate(m_farDate, S::kLongStyle),
              QStringLiteral("January 15, 2024"));
    EXPECT_EQ(S::stringWithReadableTime(m_farDate, S::kMediumStyle), QStringLiteral("2:07:09 PM"));
    EXPECT_EQ(S::stringWithReadableFullDateTime(m_farDate),
              QStringLiteral("Monday, January 15, 2024 2:07 PM"));
}

TEST_F(DateStyles, NoStyleLeavesThatPartOutAndMissingDatesAreEmpty)
{
    EXPECT_EQ(S::stringWithReadableDateTime(m_farDate, S::kNoStyle, S::kShortStyle),
              QStringLiteral("2:07 PM"));
    EXPECT_EQ(S::stringWithReadableDateTime(m_farDate, S::kLongStyle, S::kNoStyle),
              QStringLiteral("January 15, 2024"));
    EXPECT_EQ(S::stringWithReadableFullDateTime({}), QString());
    EXPECT_EQ(S::stringWithReadableDate({}, S::kShortStyle), QString());
}

TEST_F(DateStyles, LongStyleDropsTheWeekdayWhereverTheLocalePutsIt)
{
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(S::stringWithReadableDate(m_farDate, S::kLongStyle),
              QStringLiteral("15. Januar 2024"));
    QLocale::setDefault(QLocale(QLocale::Japanese, QLocale::Japan));
    EXPECT_EQ(S::stringWithReadableDate(m_farDate, S::kLongStyle),
              QStringLiteral("2024\u5e741\u670815\u65e5"));
}

TEST_F(DateStyles, LegacyDateTimeShowsTheLocalNumericOffset)
{
    const UTCDateTime epoch{0, 2082844800, 0};
    EXPECT_EQ(S::stringWithUTCDateTime(std::nullopt), QStringLiteral("(null)"));
    EXPECT_EQ(S::stringWithUTCDateTime(epoch), QStringLiteral("1970-01-01 01:00:00 +0100"));
    useTimeZone("America/St_Johns");
    EXPECT_EQ(S::stringWithUTCDateTime(epoch), QStringLiteral("1969-12-31 20:30:00 -0330"));
}

TEST_F(RelativeDayNames, NameOnlyYesterdayTodayAndTomorrow)
{
    EXPECT_EQ(S::stringWithReadableDate(local(2024, 3, 3, 23, 59, 59), S::kLongStyle),
              QStringLiteral("March 3, 2024"));
    EXPECT_EQ(S::stringWithReadableDate(local(2024, 3, 4), S::kLongStyle),
              QStringLiteral("Yesterday"));
    EXPECT_EQ(
        S::stringWithReadableDateTime(local(2024, 3, 5, 18, 0), S::kFullStyle, S::kShortStyle),
        QStringLiteral("Today 6:00 PM"));
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

// Meant for the thread sanitizer: several threads find the cache empty at once.
TEST_F(RelativeDayNames, ThreadsFillingTheCacheTogetherAgree)
{
    std::atomic<int> wrongNames{0};
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 4; ++reader) {
        readers.emplace_back([&] {
            for (int call = 0; call < 200; ++call) {
                if (S::stringWithReadableDate(local(2024, 3, 6, 12, 0), S::kLongStyle) !=
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
