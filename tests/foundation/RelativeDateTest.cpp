#include "foundation/RelativeDate.h"

#include "errors/KSException.h"

#include <QTimeZone>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>

namespace {
QDateTime berlin(int year, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), Qt::LocalTime);
}

QDateTime utc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), QTimeZone::utc());
}

// Berlin springs forward on 2024-03-31 (02:00 -> 03:00); the clock is whatever m_now says.
class RelativeDateTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TZ", "Europe/Berlin", 1);
        tzset();
        RelativeDate::setClock([this] { return m_now; });
    }
    void TearDown() override { RelativeDate::setClock({}); }

    QDateTime m_now = berlin(2024, 3, 5, 10, 0);
};

void expectConversionFailure(const std::function<void()>& convert)
{
    try {
        convert();
        ADD_FAILURE() << "the conversion did not raise";
    } catch (const KSException& exception) {
        EXPECT_EQ(exception.name(), QStringLiteral("Date"));
        EXPECT_EQ(exception.reason(), QStringLiteral("failed UTCDateTime conversion"));
        EXPECT_EQ(exception.details().value(QStringLiteral("POSIXErr")).toInt(), ERANGE);
        EXPECT_EQ(exception.details().value(QStringLiteral("API")).toString(),
                  QStringLiteral("UCConvertCFAbsoluteTimeToUTCDateTime"));
    }
}
} // namespace

using DayStarts = RelativeDateTest;
using HourAndMinute = RelativeDateTest;
using Offsets = RelativeDateTest;
using PastAndFuture = RelativeDateTest;
using LegacyDateTime = RelativeDateTest;

TEST_F(DayStarts, AreLocalMidnightsOfTheDatesDayMonthYearAndEra)
{
    EXPECT_EQ(RelativeDate::startOfToday(), berlin(2024, 3, 5));
    // 23:30 UTC is already the next day in Berlin.
    EXPECT_EQ(RelativeDate::startOfDay(utc(2024, 7, 18, 23, 30)), berlin(2024, 7, 19));
    EXPECT_EQ(RelativeDate::startOfMonth(berlin(2024, 7, 19, 16, 45)), berlin(2024, 7, 1));
    EXPECT_EQ(RelativeDate::startOfYear(berlin(2024, 7, 19, 16, 45)), berlin(2024, 1, 1));
    const QDateTime era = RelativeDate::startOfEra(berlin(2024, 7, 19));
    EXPECT_EQ(era.date(), QDate(1, 1, 1));
    EXPECT_EQ(era.time(), QTime(0, 0));
    EXPECT_FALSE(RelativeDate::startOfDay({}).isValid());
}

TEST_F(HourAndMinute, MinusOneKeepsTheDatesOwnValueAndSecondsAreDropped)
{
    const QDateTime date = berlin(2024, 3, 5, 14, 37, 45);
    EXPECT_EQ(RelativeDate::dateWithHour(date, -1, 5), berlin(2024, 3, 5, 14, 5));
    EXPECT_EQ(RelativeDate::dateWithHour(date, 9, -1), berlin(2024, 3, 5, 9, 37));
    EXPECT_EQ(RelativeDate::todayWithHour(18, 15), berlin(2024, 3, 5, 18, 15));
}

TEST_F(HourAndMinute, WallTimeInTheSpringForwardGapMovesForwardByTheGap)
{
    const QDateTime inGap = RelativeDate::dateWithHour(berlin(2024, 3, 31, 12, 0), 2, 30);
    EXPECT_EQ(inGap, berlin(2024, 3, 31, 3, 30));
    EXPECT_EQ(inGap.offsetFromUtc(), 2 * 3600);
}

TEST_F(HourAndMinute, NextHourIsTodayUntilTheTimeHasPassed)
{
    EXPECT_EQ(RelativeDate::nextHour(m_now, 10, 0), berlin(2024, 3, 5, 10, 0));
    EXPECT_EQ(RelativeDate::nextHour(m_now, 9, 59), berlin(2024, 3, 6, 9, 59));
}

TEST_F(HourAndMinute, NextHourOverTheSpringForwardNightKeepsTheWallClock)
{
    m_now = berlin(2024, 3, 30, 22, 0);
    const QDateTime next = RelativeDate::nextHour(m_now, 21, 0);
    EXPECT_EQ(next, berlin(2024, 3, 31, 21, 0));
    EXPECT_EQ(berlin(2024, 3, 30, 21, 0).secsTo(next), 23 * 3600);
}

TEST_F(Offsets, ZeroCountOrUnknownScaleLeavesTheDateAsItIs)
{
    const QDateTime date = utc(2024, 3, 5, 10, 0);
    EXPECT_EQ(RelativeDate::dateOffsetBy(date, 0, RelativeDate::kYear).offsetFromUtc(), 0);
    EXPECT_EQ(RelativeDate::dateOffsetBy(date, 3, 6), date);
    EXPECT_EQ(RelativeDate::dateOffsetBy(date, 3, -1), date);
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
}

TEST_F(Offsets, ReverseDirectionGoesBackAndMonthsClampToTheMonthEnd)
{
    EXPECT_EQ(RelativeDate::dateOffsetBy(m_now, 2, true, RelativeDate::kWeek),
              berlin(2024, 2, 20, 10, 0));
    EXPECT_EQ(RelativeDate::dateOffsetBy(berlin(2024, 1, 31, 8, 0), 1, RelativeDate::kMonth),
              berlin(2024, 2, 29, 8, 0));
    EXPECT_EQ(RelativeDate::dateOffsetBy(berlin(2024, 2, 29), 1, RelativeDate::kYear),
              berlin(2025, 2, 28));
}

TEST_F(PastAndFuture, NowIsNeitherAndOneMillisecondDecides)
{
    EXPECT_FALSE(RelativeDate::inThePast(m_now) || RelativeDate::inTheFuture(m_now));
    EXPECT_TRUE(RelativeDate::notInThePast(m_now) && RelativeDate::notInTheFuture(m_now));
    EXPECT_TRUE(RelativeDate::inThePast(m_now.addMSecs(-1)));
    EXPECT_FALSE(RelativeDate::notInThePast(m_now.addMSecs(-1)));
    EXPECT_TRUE(RelativeDate::inTheFuture(m_now.addMSecs(1)));
    EXPECT_FALSE(RelativeDate::notInTheFuture(m_now.addMSecs(1)));
}

TEST_F(PastAndFuture, MissingDateYieldsTheOtherOfTwo)
{
    EXPECT_EQ(RelativeDate::earlierDate({}, m_now), m_now);
    EXPECT_EQ(RelativeDate::laterDate(m_now, {}), m_now);
    EXPECT_FALSE(RelativeDate::earlierDate({}, {}).isValid());
    EXPECT_EQ(RelativeDate::laterDate(m_now, m_now.addSecs(-1)), m_now);
}

TEST_F(LegacyDateTime, SecondsCountFrom1904InHighAndLowWords)
{
    EXPECT_EQ(RelativeDate::newCFDateWithUTCDateTime({0, 2082844800, 0}), utc(1970, 1, 1));
    const QDateTime high = RelativeDate::newCFDateWithUTCDateTime({1, 0, 0x4000});
    EXPECT_EQ(utc(1904, 1, 1).msecsTo(high), (qint64(1) << 32) * 1000 + 250);
}

TEST_F(LegacyDateTime, EveryMillisecondSurvivesTheRoundTrip)
{
    const QDateTime second = utc(2024, 3, 31, 1, 59, 59);
    for (int millisecond = 0; millisecond < 1000; ++millisecond) {
        const QDateTime date = second.addMSecs(millisecond);
        ASSERT_EQ(RelativeDate::newCFDateWithUTCDateTime(RelativeDate::toUTCDateTime(date)), date)
            << millisecond;
    }
}

TEST_F(LegacyDateTime, DatesOutsideFortyEightBitsFrom1904Raise)
{
    EXPECT_EQ(RelativeDate::toUTCDateTime(utc(1904, 1, 1)), UTCDateTime{});
    expectConversionFailure([] { RelativeDate::toUTCDateTime(utc(1903, 12, 31, 23, 59, 59)); });
    const UTCDateTime last{0xFFFF, 0xFFFFFFFF, 0};
    const QDateTime lastDate = RelativeDate::newCFDateWithUTCDateTime(last);
    EXPECT_EQ(RelativeDate::toUTCDateTime(lastDate), last);
    expectConversionFailure([&lastDate] { RelativeDate::toUTCDateTime(lastDate.addSecs(1)); });
    expectConversionFailure([] { RelativeDate::toUTCDateTime({}); });
}

TEST_F(LegacyDateTime, PosixTimeBefore1970HasNonNegativeNanoseconds)
{
    const QDateTime date = utc(1969, 12, 31, 23, 59, 59).addMSecs(750);
    const BSDTimeSpec timeSpec = RelativeDate::toBSDTimeSpec(date);
    EXPECT_EQ(timeSpec, (BSDTimeSpec{-1, 750000000}));
    EXPECT_EQ(RelativeDate::newCFDateWithBSDTimeSpec(timeSpec), date);
}
