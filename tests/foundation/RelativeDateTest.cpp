#include "foundation/RelativeDate.h"

#include "errors/KSException.h"

#include <QLocale>
#include <QTimeZone>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <limits>

namespace {
QDateTime berlin(int year, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), Qt::LocalTime);
}

QDateTime utc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), QTimeZone::utc());
}

// Dates are checked in a zone with a spring-forward day (2024-03-31, 02:00 -> 03:00) against a
// clock the test sets.
class RelativeDateTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TZ", "Europe/Berlin", 1);
        tzset();
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        RelativeDate::setClock([this] { return m_now; });
    }

    void TearDown() override { RelativeDate::setClock({}); }

    QDateTime m_now = berlin(2024, 3, 5, 10, 0);
};

void expectDateConversionFailure(const std::function<void()>& convert, const QString& api)
{
    try {
        convert();
        ADD_FAILURE() << "the conversion did not raise";
    } catch (const KSException& exception) {
        EXPECT_EQ(exception.name(), QStringLiteral("Date"));
        EXPECT_EQ(exception.reason(), QStringLiteral("failed UTCDateTime conversion"));
        EXPECT_EQ(exception.details().value(QStringLiteral("POSIXErr")).toInt(), ERANGE);
        EXPECT_EQ(exception.details().value(QStringLiteral("API")).toString(), api);
    }
}
} // namespace

class DayStarts : public RelativeDateTest
{};

TEST_F(DayStarts, StartOfTodayIsMidnightOfTheClocksDay)
{
    EXPECT_EQ(RelativeDate::startOfToday(), berlin(2024, 3, 5));
}

TEST_F(DayStarts, StartOfDayIsTakenInTheLocalZone)
{
    // 23:30 UTC is already the next day in Berlin.
    EXPECT_EQ(RelativeDate::startOfDay(utc(2024, 3, 5, 23, 30)), berlin(2024, 3, 6));
}

TEST_F(DayStarts, MonthYearAndEraStartAtTheirFirstMidnight)
{
    const QDateTime date = berlin(2024, 7, 19, 16, 45, 3);
    EXPECT_EQ(RelativeDate::startOfMonth(date), berlin(2024, 7, 1));
    EXPECT_EQ(RelativeDate::startOfYear(date), berlin(2024, 1, 1));
    const QDateTime era = RelativeDate::startOfEra(date);
    EXPECT_EQ(era.date(), QDate(1, 1, 1));
    EXPECT_EQ(era.time(), QTime(0, 0));
}

TEST_F(DayStarts, MissingDateStaysMissing)
{
    EXPECT_FALSE(RelativeDate::startOfDay({}).isValid());
    EXPECT_FALSE(RelativeDate::startOfMonth({}).isValid());
    EXPECT_FALSE(RelativeDate::dateWithHour({}, 9, 0).isValid());
    EXPECT_FALSE(RelativeDate::dateOffsetBy({}, 1, RelativeDate::kDay).isValid());
}

class HourAndMinute : public RelativeDateTest
{};

TEST_F(HourAndMinute, MinusOneKeepsTheDatesOwnValueAndSecondsAreDropped)
{
    const QDateTime date = berlin(2024, 3, 5, 14, 37, 45);
    EXPECT_EQ(RelativeDate::dateWithHour(date, -1, 5), berlin(2024, 3, 5, 14, 5));
    EXPECT_EQ(RelativeDate::dateWithHour(date, 9, -1), berlin(2024, 3, 5, 9, 37));
    EXPECT_EQ(RelativeDate::dateWithHour(date, -1, -1), berlin(2024, 3, 5, 14, 37));
}

TEST_F(HourAndMinute, WallTimeInTheSpringForwardGapMovesForwardByTheGap)
{
    const QDateTime inGap = RelativeDate::dateWithHour(berlin(2024, 3, 31, 12, 0), 2, 30);
    ASSERT_TRUE(inGap.isValid());
    EXPECT_EQ(inGap, berlin(2024, 3, 31, 3, 30));
    EXPECT_EQ(inGap.offsetFromUtc(), 2 * 3600);
}

TEST_F(HourAndMinute, TodayWithHourUsesTheClock)
{
    EXPECT_EQ(RelativeDate::todayWithHour(18, 15), berlin(2024, 3, 5, 18, 15));
}

TEST_F(HourAndMinute, NextHourStaysTodayWhileTheTimeIsAhead)
{
    EXPECT_EQ(RelativeDate::nextHour(m_now, 11, 0), berlin(2024, 3, 5, 11, 0));
    EXPECT_EQ(RelativeDate::nextHour(m_now, 10, 0), berlin(2024, 3, 5, 10, 0));
}

TEST_F(HourAndMinute, NextHourMovesToTomorrowOnceTheTimeHasPassed)
{
    EXPECT_EQ(RelativeDate::nextHour(m_now, 9, 59), berlin(2024, 3, 6, 9, 59));
}

TEST_F(HourAndMinute, NextHourOverTheSpringForwardNightKeepsTheWallClock)
{
    m_now = berlin(2024, 3, 30, 22, 0);
    const QDateTime next = RelativeDate::nextHour(m_now, 21, 0);
    EXPECT_EQ(next, berlin(2024, 3, 31, 21, 0));
    EXPECT_EQ(berlin(2024, 3, 30, 21, 0).secsTo(next), 23 * 3600);
}

class Offsets : public RelativeDateTest
{};

TEST_F(Offsets, ZeroCountReturnsTheDateUnchanged)
{
    const QDateTime date = utc(2024, 3, 5, 10, 0);
    const QDateTime same = RelativeDate::dateOffsetBy(date, 0, RelativeDate::kYear);
    EXPECT_EQ(same, date);
    EXPECT_EQ(same.offsetFromUtc(), 0);
}

TEST_F(Offsets, DaysKeepTheWallClockAcrossSpringForwardWhileHoursDoNot)
{
    const QDateTime before = berlin(2024, 3, 30, 12, 0);
    const QDateTime dayLater = RelativeDate::dateOffsetBy(before, 1, RelativeDate::kDay);
    EXPECT_EQ(dayLater, berlin(2024, 3, 31, 12, 0));
    EXPECT_EQ(before.secsTo(dayLater), 23 * 3600);

    const QDateTime night = berlin(2024, 3, 31, 1, 30);
    EXPECT_EQ(RelativeDate::dateOffsetBy(night, 1, RelativeDate::kHour),
              berlin(2024, 3, 31, 3, 30));
    EXPECT_EQ(RelativeDate::dateOffsetBy(night, 90, RelativeDate::kMinute),
              berlin(2024, 3, 31, 4, 0));
}

TEST_F(Offsets, ReverseDirectionGoesBack)
{
    const QDateTime date = berlin(2024, 3, 5, 10, 0);
    EXPECT_EQ(RelativeDate::dateOffsetBy(date, 2, true, RelativeDate::kWeek),
              berlin(2024, 2, 20, 10, 0));
    EXPECT_EQ(RelativeDate::dateOffsetBy(date, -2, true, RelativeDate::kWeek),
              berlin(2024, 3, 19, 10, 0));
}

TEST_F(Offsets, MonthsAndYearsClampToTheEndOfAShorterMonth)
{
    EXPECT_EQ(RelativeDate::dateOffsetBy(berlin(2024, 1, 31, 8, 0), 1, RelativeDate::kMonth),
              berlin(2024, 2, 29, 8, 0));
    EXPECT_EQ(RelativeDate::dateOffsetBy(berlin(2024, 2, 29), 1, RelativeDate::kYear),
              berlin(2025, 2, 28));
}

TEST_F(Offsets, UnknownScaleAddsNothing)
{
    EXPECT_EQ(RelativeDate::dateOffsetBy(m_now, 3, 6), m_now);
    EXPECT_EQ(RelativeDate::dateOffsetBy(m_now, 3, -1), m_now);
}

TEST_F(Offsets, MostNegativeCountReversedDoesNotOverflow)
{
    const int count = std::numeric_limits<int>::min();
    EXPECT_EQ(RelativeDate::dateOffsetBy(m_now, count, true, RelativeDate::kMinute),
              m_now.addSecs(-qint64(count) * 60));
}

class PastAndFuture : public RelativeDateTest
{};

TEST_F(PastAndFuture, NowIsNeitherPastNorFuture)
{
    EXPECT_FALSE(RelativeDate::inThePast(m_now));
    EXPECT_FALSE(RelativeDate::inTheFuture(m_now));
    EXPECT_TRUE(RelativeDate::notInThePast(m_now));
    EXPECT_TRUE(RelativeDate::notInTheFuture(m_now));
}

TEST_F(PastAndFuture, OneMillisecondDecides)
{
    EXPECT_TRUE(RelativeDate::inThePast(m_now.addMSecs(-1)));
    EXPECT_FALSE(RelativeDate::notInThePast(m_now.addMSecs(-1)));
    EXPECT_TRUE(RelativeDate::inTheFuture(m_now.addMSecs(1)));
    EXPECT_FALSE(RelativeDate::notInTheFuture(m_now.addMSecs(1)));
}

TEST_F(PastAndFuture, MissingDateIsNothing)
{
    EXPECT_FALSE(RelativeDate::inThePast({}));
    EXPECT_FALSE(RelativeDate::inTheFuture({}));
    EXPECT_FALSE(RelativeDate::notInThePast({}));
    EXPECT_FALSE(RelativeDate::notInTheFuture({}));
}

class EarlierAndLater : public RelativeDateTest
{};

TEST_F(EarlierAndLater, MissingDateYieldsTheOther)
{
    const QDateTime date = berlin(2024, 3, 5);
    EXPECT_EQ(RelativeDate::earlierDate({}, date), date);
    EXPECT_EQ(RelativeDate::laterDate(date, {}), date);
    EXPECT_FALSE(RelativeDate::earlierDate({}, {}).isValid());
    EXPECT_FALSE(RelativeDate::laterDate({}, {}).isValid());
}

TEST_F(EarlierAndLater, PicksByInstantNotByZone)
{
    const QDateTime localNoon = berlin(2024, 3, 5, 12, 0);
    const QDateTime utcEleventhHourAndAHalf = utc(2024, 3, 5, 11, 30);
    EXPECT_EQ(RelativeDate::earlierDate(utcEleventhHourAndAHalf, localNoon), localNoon);
    EXPECT_EQ(RelativeDate::laterDate(localNoon, utcEleventhHourAndAHalf), utcEleventhHourAndAHalf);
}

class LegacyDateTime : public RelativeDateTest
{};

TEST_F(LegacyDateTime, LowSecondsCountFrom1904)
{
    EXPECT_EQ(RelativeDate::newCFDateWithUTCDateTime({0, 2082844800, 0}), utc(1970, 1, 1));
    EXPECT_EQ(RelativeDate::newCFDateWithUTCDateTime({0, 0, 0}), utc(1904, 1, 1));
}

TEST_F(LegacyDateTime, HighSecondsAreTheUpperBitsOfTheSecondCount)
{
    const QDateTime date = RelativeDate::newCFDateWithUTCDateTime({1, 0, 0});
    EXPECT_EQ(utc(1904, 1, 1).secsTo(date), qint64(1) << 32);
}

TEST_F(LegacyDateTime, FractionIsSixtyFiveThousandFiveHundredThirtySixthsOfASecond)
{
    const QDateTime date = RelativeDate::newCFDateWithUTCDateTime({0, 2082844800, 0x4000});
    EXPECT_EQ(date.toMSecsSinceEpoch(), 250);
    EXPECT_EQ(RelativeDate::toUTCDateTime(date), (UTCDateTime{0, 2082844800, 0x4000}));
}

TEST_F(LegacyDateTime, EveryMillisecondSurvivesTheRoundTrip)
{
    const QDateTime second = utc(2024, 3, 31, 1, 59, 59);
    for (int millisecond = 0; millisecond < 1000; ++millisecond) {
        const QDateTime date = second.addMSecs(millisecond);
        const QDateTime back =
            RelativeDate::newCFDateWithUTCDateTime(RelativeDate::toUTCDateTime(date));
        ASSERT_EQ(back, date) << millisecond;
    }
}

TEST_F(LegacyDateTime, DateBefore1904Raises)
{
    EXPECT_EQ(RelativeDate::toUTCDateTime(utc(1904, 1, 1)), UTCDateTime{});
    expectDateConversionFailure([] { RelativeDate::toUTCDateTime(utc(1903, 12, 31, 23, 59, 59)); },
                                QStringLiteral("UCConvertCFAbsoluteTimeToUTCDateTime"));
}

TEST_F(LegacyDateTime, DateBeyondFortyEightBitsRaises)
{
    const UTCDateTime last{0xFFFF, 0xFFFFFFFF, 0};
    const QDateTime lastDate = RelativeDate::newCFDateWithUTCDateTime(last);
    EXPECT_EQ(RelativeDate::toUTCDateTime(lastDate), last);
    expectDateConversionFailure([&lastDate] { RelativeDate::toUTCDateTime(lastDate.addSecs(1)); },
                                QStringLiteral("UCConvertCFAbsoluteTimeToUTCDateTime"));
}

TEST_F(LegacyDateTime, MissingDateRaises)
{
    expectDateConversionFailure([] { RelativeDate::toUTCDateTime({}); },
                                QStringLiteral("UCConvertCFAbsoluteTimeToUTCDateTime"));
}

class PosixTimeSpec : public RelativeDateTest
{};

TEST_F(PosixTimeSpec, DateBefore1970HasNonNegativeNanoseconds)
{
    const QDateTime date = utc(1969, 12, 31, 23, 59, 59).addMSecs(750);
    const BSDTimeSpec timeSpec = RelativeDate::toBSDTimeSpec(date);
    EXPECT_EQ(timeSpec, (BSDTimeSpec{-1, 750000000}));
    EXPECT_EQ(RelativeDate::newCFDateWithBSDTimeSpec(timeSpec), date);
}

TEST_F(PosixTimeSpec, NanosecondsRoundToTheNearestMillisecond)
{
    EXPECT_EQ(RelativeDate::newCFDateWithBSDTimeSpec({10, 1499999}).toMSecsSinceEpoch(), 10001);
    EXPECT_EQ(RelativeDate::newCFDateWithBSDTimeSpec({10, 1500000}).toMSecsSinceEpoch(), 10002);
}

TEST_F(PosixTimeSpec, SecondsBeyondADateGiveAMissingDate)
{
    EXPECT_FALSE(
        RelativeDate::newCFDateWithBSDTimeSpec({std::numeric_limits<qint64>::max(), 0}).isValid());
}
