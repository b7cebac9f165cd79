#include "foundation/HumanReadableString.h"

#include <QLocale>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <initializer_list>
#include <limits>
#include <utility>

using namespace Qt::StringLiterals;

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

// Each computed text against the one expected, with the row's index when they differ.
void expectTexts(std::initializer_list<std::pair<QString, const char*>> rows)
{
    int row = 0;
    for (const auto& [actual, expected] : rows) {
        EXPECT_EQ(actual, QString::fromUtf8(expected)) << "row " << row++;
    }
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
using DateStyles = ReadableTextTest;
using RelativeDayNames = ReadableTextTest;

TEST_F(Numbers, SizesIntegersOrdinalsAndBuildVersions)
{
    expectTexts({
        {S::stringWithReadableSize(999), "999 bytes"},
        {S::stringWithReadableSize(1500000), "1.5 MB"},
        {S::stringWithReadableSize(std::numeric_limits<quint64>::max()), "18.4 EB"},
    });
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany)); // grouping ignores locale
    expectTexts({
        {S::stringWithReadableInt(1500000), "1,500,000"},
        {S::stringWithReadableInteger(0), "0"},
        {S::stringWithReadableInt(-1234), "-1,234"},
        {S::stringWithReadableLongLong(std::numeric_limits<qint64>::min()),
         "-9,223,372,036,854,775,808"},
        // Only ten to nineteen are teens.
        {S::stringWithOrdinalInteger(1), "1st"},
        {S::stringWithOrdinalInteger(22), "22nd"},
        {S::stringWithOrdinalInteger(13), "13th"},
        {S::stringWithOrdinalInteger(111), "111st"},
        {S::stringWithOrdinalInteger(112), "112nd"},
        {S::stringWithOrdinalInteger(113), "113rd"},
        {S::stringWithOrdinalInteger(1000), "1,000th"},
        {S::stringWithReadableBuildVersion(0x22512), "2.2.5(18)"},
        {S::stringWithReadableBuildVersion(0xABC00), "10.11.12"},
        {S::stringWithReadableBuildVersion(1677721), "unknown"},
        {S::stringWithReadableBuildVersion(1048576), "invalid(100000)"},
    });
    const QString text = u"caf\u00e9 \U0001F600"_s;
    EXPECT_EQ(S::UTF8Length(text), 10);
    EXPECT_EQ(S::UTF8LengthWithOverhead(&text), 12);
    EXPECT_EQ(S::UTF8LengthWithOverhead(nullptr), 2);
}

TEST_F(Numbers, DurationsAndRemainingTimes)
{
    const quint64 threeDaysFourHours = 3 * 86400 + 4 * 3600;
    expectTexts({
        {S::stringWithReadableDuration(59), "00:59"},
        {S::stringWithReadableDuration(3599), "59:59"},
        {S::stringWithReadableDuration(3600), "1:00:00"},
        {S::stringWithReadableDuration(-61), "-01:01"},
        {S::stringWithReadableDurationScale(-3, RelativeDate::kDay), "3 days ago"},
        {S::stringWithReadableDurationScale(1, RelativeDate::kHour), "1 hour"},
        {S::stringWithReadableDurationScale(0, RelativeDate::kWeek), "0 weeks"},
        // Under a minute is vague unless precise; not precise stops at the largest unit.
        {S::stringWithReadableRemainingTime(0, false), ""},
        {S::stringWithReadableRemainingTime(9, false), "less than 10 seconds"},
        {S::stringWithReadableRemainingTime(10, false), "about 10 seconds"},
        {S::stringWithReadableRemainingTime(16, false), "less than a minute"},
        {S::stringWithReadableRemainingTime(45, true), "45 seconds"},
        {S::stringWithReadableRemainingTime(60, false), "1 minute"},
        {S::stringWithReadableRemainingTime(90, false), "1 minute"},
        {S::stringWithReadableRemainingTime(172800, false), "2 days"},
        {S::stringWithReadableRemainingTime(threeDaysFourHours, false), "3 days"},
        {S::stringWithReadableRemainingTime(threeDaysFourHours, true), "3 days 4 hours"},
        {S::stringWithReadableRemainingTime(86401, true), "1 day 1 second"},
    });
}

TEST_F(DateStyles, StylesGrowFromShortToFullAndNoStyleLeavesThatPartOut)
{
    expectTexts({
        {S::stringWithReadableDate(m_farDate, S::kShortStyle), "1/15/24"},
        {S::stringWithReadableDate(m_farDate, S::kMediumStyle), "Jan 15, 2024"},
        {S::stringWithReadableDate(m_farDate, S::kLongStyle), "January 15, 2024"},
        {S::stringWithReadableTime(m_farDate, S::kMediumStyle), "2:07:09 PM"},
        {S::stringWithReadableFullDateTime(m_farDate), "Monday, January 15, 2024 2:07 PM"},
        {S::stringWithReadableDateTime(m_farDate, S::kNoStyle, S::kShortStyle), "2:07 PM"},
        {S::stringWithReadableDateTime(m_farDate, S::kLongStyle, S::kNoStyle), "January 15, 2024"},
        {S::stringWithReadableFullDateTime({}), ""},
        {S::stringWithReadableDate({}, S::kShortStyle), ""},
    });
    // The long style drops the weekday wherever the locale puts it.
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(S::stringWithReadableDate(m_farDate, S::kLongStyle), u"15. Januar 2024"_s);
    QLocale::setDefault(QLocale(QLocale::Japanese, QLocale::Japan));
    EXPECT_EQ(S::stringWithReadableDate(m_farDate, S::kLongStyle), u"2024\u5e741\u670815\u65e5"_s);
}

TEST_F(DateStyles, LegacyDateTimeShowsTheLocalNumericOffset)
{
    const UTCDateTime epoch{0, 2082844800, 0};
    EXPECT_EQ(S::stringWithUTCDateTime(std::nullopt), u"(null)"_s);
    EXPECT_EQ(S::stringWithUTCDateTime(epoch), u"1970-01-01 01:00:00 +0100"_s);
    useTimeZone("America/St_Johns");
    EXPECT_EQ(S::stringWithUTCDateTime(epoch), u"1969-12-31 20:30:00 -0330"_s);
}

TEST_F(RelativeDayNames, NameOnlyYesterdayTodayAndTomorrow)
{
    expectTexts({
        {S::stringWithReadableDate(local(2024, 3, 3, 23, 59, 59), S::kLongStyle), "March 3, 2024"},
        {S::stringWithReadableDate(local(2024, 3, 4), S::kLongStyle), "Yesterday"},
        {S::stringWithReadableDateTime(local(2024, 3, 5, 18, 0), S::kFullStyle, S::kShortStyle),
         "Today 6:00 PM"},
        {S::stringWithReadableDate(local(2024, 3, 6, 23, 59, 59), S::kLongStyle), "Tomorrow"},
        {S::stringWithReadableDate(local(2024, 3, 7), S::kLongStyle), "March 7, 2024"},
    });
}

// A short spring-forward day still ends at midnight.
TEST_F(RelativeDayNames, NamesMoveOnWhenTheClockCrossesMidnight)
{
    setNow(local(2024, 3, 5, 23, 59, 59));
    const QDateTime wednesday = local(2024, 3, 6, 12, 0);
    const QDateTime monday = local(2024, 3, 4, 12, 0);
    EXPECT_EQ(S::stringWithReadableDate(wednesday, S::kLongStyle), u"Tomorrow"_s);
    EXPECT_EQ(S::stringWithReadableDate(monday, S::kLongStyle), u"Yesterday"_s);
    setNow(local(2024, 3, 6));
    EXPECT_EQ(S::stringWithReadableDate(wednesday, S::kLongStyle), u"Today"_s);
    EXPECT_EQ(S::stringWithReadableDate(monday, S::kLongStyle), u"March 4, 2024"_s);
    setNow(local(2024, 3, 30, 10, 0));
    EXPECT_EQ(S::stringWithReadableDate(local(2024, 3, 31, 23, 59, 59), S::kLongStyle),
              u"Tomorrow"_s);
    EXPECT_EQ(S::stringWithReadableDate(local(2024, 4, 1), S::kLongStyle), u"April 1, 2024"_s);
}
