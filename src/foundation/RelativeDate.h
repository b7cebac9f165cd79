#pragma once

#include <QDateTime>
#include <functional>
#include <optional>

// The legacy date-time of old archives: seconds since 1904-01-01 00:00 UTC split into 16 high
// and 32 low bits, plus a fraction of 1/65536 s.
struct UTCDateTime
{
    quint16 highSeconds = 0;
    quint32 lowSeconds = 0;
    quint16 fraction = 0;

    friend bool operator==(const UTCDateTime&, const UTCDateTime&) = default;
};

// A POSIX time: seconds since 1970-01-01 00:00 UTC and nanoseconds.
struct BSDTimeSpec
{
    qint64 seconds = 0;
    qint64 nanoseconds = 0;

    friend bool operator==(const BSDTimeSpec&, const BSDTimeSpec&) = default;
};

// Calendar arithmetic in the user's calendar and local time zone. A missing date is an invalid
// QDateTime; every operation on one yields a missing date (or false). All functions may be
// called from any thread.
class RelativeDate
{
public:
    // Unit indexes of dateOffsetBy and of readable durations.
    enum Scale : int
    {
        kMinute = 0,
        kHour = 1,
        kDay = 2,
        kWeek = 3,
        kMonth = 4,
        kYear = 5,
    };

    using Clock = std::function<QDateTime()>;

    // Everything that asks for "now" asks this clock; an empty one restores the system clock.
    static void setClock(Clock clock);
    static QDateTime now();

    static QDateTime startOfToday();
    static QDateTime todayWithHour(int hour, int minute);
    // Raises KSException "Date" when the result is not a representable date.
    static QDateTime newCFDateWithUTCDateTime(const UTCDateTime& dateTime);
    // A time beyond what a date can hold gives a missing date.
    static QDateTime newCFDateWithBSDTimeSpec(const BSDTimeSpec& timeSpec);

    static QDateTime startOfEra(const QDateTime& date);
    static QDateTime startOfYear(const QDateTime& date);
    static QDateTime startOfMonth(const QDateTime& date);
    static QDateTime startOfDay(const QDateTime& date);
    // -1 for the hour or minute keeps the date's own; the second is always 0.
    static QDateTime dateWithHour(const QDateTime& date, int hour, int minute);
    // The next occurrence of that wall-clock time, counted from the date's day.
    static QDateTime nextHour(const QDateTime& date, int hour, int minute);
    static QDateTime dateOffsetBy(const QDateTime& date, int count, int scale);
    static QDateTime dateOffsetBy(const QDateTime& date, int count, bool reverseDirection,
                                  int scale);

    // The scheduler's and the commands' times: seconds since 2001-01-01T00:00:00Z.
    static constexpr qint64 kReferenceDateOffset = 978307200;
    static double secondsSinceReferenceDate(const QDateTime& date);
    // None for a value that is not a finite number of seconds a date can hold.
    static QDateTime dateWithSecondsSinceReferenceDate(double seconds);

    static bool inThePast(const QDateTime& date);
    static bool inTheFuture(const QDateTime& date);
    static bool notInThePast(const QDateTime& date);
    static bool notInTheFuture(const QDateTime& date);

    // Raises KSException "Date" for a missing date, a date before 1904 or one beyond 48 bits
    // of seconds.
    static UTCDateTime toUTCDateTime(const QDateTime& date);
    // A missing date gives the epoch.
    static BSDTimeSpec toBSDTimeSpec(const QDateTime& date);

    // A missing date yields the other one; equal dates yield the first.
    static QDateTime earlierDate(const QDateTime& a, const QDateTime& b);
    static QDateTime laterDate(const QDateTime& a, const QDateTime& b);

    // -1, 0 or 1 when the date falls yesterday, today or tomorrow; none otherwise.
    static std::optional<int> dayOffsetFromToday(const QDateTime& date);
};
