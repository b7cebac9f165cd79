#include "foundation/RelativeDate.h"

#include "exception/KSException.h"

#include <QTimeZone>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

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
        EXPECT_EQ(exception.name(), u"Date"_s);
        EXPECT_EQ(exception.reason(), u"failed UTCDateTime conversion"_s);
        EXPECT_EQ(exception.details().value(u"POSIXErr"_s).toInt(), ERANGE);
        EXPECT_EQ(exception.details().value(u"API"_s).toString(),
                  u"UCConvertCFAbsoluteTimeToUTCDateTime"_s);
    }
}
} // namespace

TEST_F(RelativeDateTest, DayStartsAreLocalMidnightsOfTheDatesDayMonthYearAndEra)
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

TEST_F(RelativeDateTest, HourAndMinuteMinusOneKeepsTheDatesValueAndGapsMoveForward)
{
    const QDateTime date = berlin(2024, 3, 5, 14, 37, 45);
    EXPECT_EQ(RelativeDate::dateWithHour(date, -1, 5), berlin(2024, 3, 5, 14, 5));
    EXPECT_EQ(RelativeDate::dateWithHour(date, 9, -1), berlin(2024, 3, 5, 9, 37));
    EXPECT_EQ(RelativeDate::todayWithHour(18, 15), berlin(2024, 3, 5, 18, 15));
    const QDateTime inGap = RelativeDate::dateWithHour(berlin(2024, 3, 31, 12, 0), 2, 30);
    EXPECT_EQ(inGap, berlin(2024, 3, 31, 3, 30));
    // The next hour is today until the time has passed, and keeps the wall clock.
    EXPECT_EQ(RelativeDate::nextHour(m_now, 10, 0), berlin(2024, 3, 5, 10, 0));
    EXPECT_EQ(RelativeDate::nextHour(m_now, 9, 59), berlin(2024, 3, 6, 9, 59));
    m_now = berlin(2024, 3, 30, 22, 0);
    EXPECT_EQ(RelativeDate::nextHour(m_now, 21, 0), berlin(2024, 3, 31, 21, 0));
}

TEST_F(RelativeDateTest, OffsetsUnitsOfTheCalendarInEitherDirection)
{
    const QDateTime date = utc(2024, 3, 5, 10, 0);
    const struct
    {
        QDateTime from, expected;
        int count, scale;
    } rows[] = {
        {date, date, 3, 6}, // an unknown scale leaves the date as it is
        {date, date, 3, -1},
        {berlin(2024, 3, 30, 12, 0), berlin(2024, 3, 31, 12, 0), 1, RelativeDate::kDay},
        {berlin(2024, 3, 31, 1, 30), berlin(2024, 3, 31, 3, 30), 1, RelativeDate::kHour},
        {berlin(2024, 1, 31, 8, 0), berlin(2024, 2, 29, 8, 0), 1, RelativeDate::kMonth},
        {berlin(2024, 2, 29), berlin(2025, 2, 28), 1, RelativeDate::kYear},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(RelativeDate::dateOffsetBy(row.from, row.count, row.scale), row.expected)
            << row.from.toString(Qt::ISODate).toStdString() << " scale " << row.scale;
    }
    EXPECT_EQ(RelativeDate::dateOffsetBy(date, 0, RelativeDate::kYear).offsetFromUtc(), 0);
    EXPECT_EQ(RelativeDate::dateOffsetBy(m_now, 2, true, RelativeDate::kWeek),
              berlin(2024, 2, 20, 10, 0));
}

TEST_F(RelativeDateTest, PastAndFutureOneMillisecondDecidesAndMissingYieldsTheOther)
{
    EXPECT_FALSE(RelativeDate::inThePast(m_now) || RelativeDate::inTheFuture(m_now));
    EXPECT_TRUE(RelativeDate::notInThePast(m_now) && RelativeDate::notInTheFuture(m_now));
    EXPECT_TRUE(RelativeDate::inThePast(m_now.addMSecs(-1)) &&
                !RelativeDate::notInThePast(m_now.addMSecs(-1)));
    EXPECT_TRUE(RelativeDate::inTheFuture(m_now.addMSecs(1)) &&
                !RelativeDate::notInTheFuture(m_now.addMSecs(1)));
    EXPECT_EQ(RelativeDate::earlierDate({}, m_now), m_now);
    EXPECT_EQ(RelativeDate::laterDate(m_now, {}), m_now);
    EXPECT_FALSE(RelativeDate::earlierDate({}, {}).isValid());
    EXPECT_EQ(RelativeDate::laterDate(m_now, m_now.addSecs(-1)), m_now);
}

TEST_F(RelativeDateTest, LegacyDateTimeCountsFrom1904AndRaisesOutside48Bits)
{
    EXPECT_EQ(RelativeDate::newCFDateWithUTCDateTime({0, 2082844800, 0}), utc(1970, 1, 1));
    const QDateTime high = RelativeDate::newCFDateWithUTCDateTime({1, 0, 0x4000});
    EXPECT_EQ(utc(1904, 1, 1).msecsTo(high), (qint64(1) << 32) * 1000 + 250);
    // POSIX time before 1970 has non-negative nanoseconds.
    const QDateTime beforeEpoch = utc(1969, 12, 31, 23, 59, 59).addMSecs(750);
    EXPECT_EQ(RelativeDate::toBSDTimeSpec(beforeEpoch), (BSDTimeSpec{-1, 750000000}));
    EXPECT_EQ(RelativeDate::newCFDateWithBSDTimeSpec(BSDTimeSpec{-1, 750000000}), beforeEpoch);
    // Every millisecond survives the round trip.
    const QDateTime second = utc(2024, 3, 31, 1, 59, 59);
    for (int millisecond = 0; millisecond < 1000; ++millisecond) {
        const QDateTime date = second.addMSecs(millisecond);
        ASSERT_EQ(RelativeDate::newCFDateWithUTCDateTime(RelativeDate::toUTCDateTime(date)), date)
            << millisecond;
    }
    // Dates outside 48 bits of seconds from 1904 raise.
    EXPECT_EQ(RelativeDate::toUTCDateTime(utc(1904, 1, 1)), UTCDateTime{});
    expectConversionFailure([] { RelativeDate::toUTCDateTime(utc(1903, 12, 31, 23, 59, 59)); });
    const UTCDateTime last{0xFFFF, 0xFFFFFFFF, 0};
    const QDateTime lastDate = RelativeDate::newCFDateWithUTCDateTime(last);
    EXPECT_EQ(RelativeDate::toUTCDateTime(lastDate), last);
    expectConversionFailure([&lastDate] { RelativeDate::toUTCDateTime(lastDate.addSecs(1)); });
    expectConversionFailure([] { RelativeDate::toUTCDateTime({}); });
}
