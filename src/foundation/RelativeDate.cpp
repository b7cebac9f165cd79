#include "foundation/RelativeDate.h"

#include "exception/KSException.h"

#include <QCalendar>
#include <QtNumeric>
#include <cerrno>
#include <cmath>
#include <limits>
#include <mutex>
#include <utility>

namespace {
constexpr qint64 kSecondsFrom1904To1970 = 2082844800;
constexpr qint64 kUTCSecondsLimit = qint64(1) << 48;
constexpr qint64 kNanosecondsPerSecond = 1000000000;
constexpr qint64 kNanosecondsPerMillisecond = 1000000;
constexpr qint64 kMinutesPerDay = 24 * 60;

// Instants in milliseconds since the epoch.
struct DayBoundaries
{
    qint64 startOfYesterday;
    qint64 startOfToday;
    qint64 startOfTomorrow;
    qint64 startOfDayAfterTomorrow;
};

// Long past, so that the first use computes the boundaries.
constexpr qint64 kLongPast = std::numeric_limits<qint64>::min();
constexpr DayBoundaries kUnknownDay{kLongPast, kLongPast, kLongPast, kLongPast};

// A mutex rather than atomics: the four boundaries are only meaningful as one set, and a reader
// must never pair yesterday of one day with tomorrow of the next. The lock is held for a copy,
// never while the clock runs or the calendar works.
struct ClockState
{
    std::mutex mutex;
    RelativeDate::Clock clock;
    // Bumped by every new clock, so that boundaries computed from the old one are not stored.
    quint64 generation = 0;
    DayBoundaries boundaries = kUnknownDay;
};

ClockState& clockState()
{
    static ClockState state;
    return state;
}

qint64 floorDiv(qint64 value, qint64 divisor)
{
    const qint64 quotient = value / divisor;
    return (value % divisor < 0) ? quotient - 1 : quotient;
}

qint64 floorMod(qint64 value, qint64 divisor)
{
    return value - floorDiv(value, divisor) * divisor;
}

[[noreturn]] void raiseConversionFailure(const QString& api)
{
    KSException::exceptionWithName(QStringLiteral("Date"),
                                   QStringLiteral("failed UTCDateTime conversion"))
        .setPOSIXErr(ERANGE)
        .setAPI(api)
        .raise();
}

// A wall time inside a spring-forward gap does not exist. Like calendar components, it is moved
// forward by the gap, which is what the time elapsed since the start of the day gives.
QDateTime localDateTime(QDate day, QTime time)
{
    QDateTime result(day, time, Qt::LocalTime);
    if (!result.isValid() && day.isValid() && time.isValid()) {
        result = day.startOfDay().addMSecs(time.msecsSinceStartOfDay());
    }
    return result;
}

QDateTime shiftDays(const QDateTime& date, qint64 days)
{
    const QDateTime local = date.toLocalTime();
    return localDateTime(local.date().addDays(days), local.time());
}

QDateTime shiftMonths(const QDateTime& date, qint64 months)
{
    if (!std::in_range<int>(months)) {
        return {};
    }
    const QDateTime local = date.toLocalTime();
    return localDateTime(local.date().addMonths(static_cast<int>(months), QCalendar()),
                         local.time());
}

QDate firstDay(int year, int month)
{
    return QDate(year, month, 1, QCalendar());
}

QCalendar::YearMonthDay localParts(const QDateTime& date)
{
    return QCalendar().partsFromDate(date.toLocalTime().date());
}

BSDTimeSpec timeSpecFromUTCDateTime(const UTCDateTime& dateTime)
{
    const qint64 seconds =
        (qint64(dateTime.highSeconds) << 32) + qint64(dateTime.lowSeconds) - kSecondsFrom1904To1970;
    const qint64 nanoseconds = (qint64(dateTime.fraction) * kNanosecondsPerSecond) >> 16;
    return {seconds, nanoseconds};
}

std::optional<qint64> intervalFromNow(const QDateTime& date)
{
    if (!date.isValid()) {
        return std::nullopt;
    }
    return date.toMSecsSinceEpoch() - RelativeDate::now().toMSecsSinceEpoch();
}

DayBoundaries boundariesAround(const QDateTime& now)
{
    const QDateTime today = RelativeDate::startOfDay(now);
    const auto startOf = [&today](int days) {
        return RelativeDate::dateOffsetBy(today, days, RelativeDate::kDay).toMSecsSinceEpoch();
    };
    return {startOf(-1), today.toMSecsSinceEpoch(), startOf(1), startOf(2)};
}

DayBoundaries currentDayBoundaries()
{
    ClockState& state = clockState();
    RelativeDate::Clock clock;
    quint64 generation = 0;
    {
        const std::lock_guard lock(state.mutex);
        clock = state.clock;
        generation = state.generation;
    }
    const QDateTime now = clock ? clock() : QDateTime::currentDateTime();
    {
        const std::lock_guard lock(state.mutex);
        if (generation == state.generation &&
            now.toMSecsSinceEpoch() < state.boundaries.startOfTomorrow) {
            return state.boundaries;
        }
    }
    const DayBoundaries fresh = boundariesAround(now);
    const std::lock_guard lock(state.mutex);
    if (generation == state.generation) {
        state.boundaries = fresh;
    }
    return fresh;
}
} // namespace

void RelativeDate::setClock(Clock clock)
{
    ClockState& state = clockState();
    const std::lock_guard lock(state.mutex);
    state.clock = std::move(clock);
    ++state.generation;
    state.boundaries = kUnknownDay;
}

double RelativeDate::secondsSinceReferenceDate(const QDateTime& date)
{
    return double(date.toMSecsSinceEpoch()) / 1000.0 - double(kReferenceDateOffset);
}

QDateTime RelativeDate::dateWithSecondsSinceReferenceDate(double seconds)
{
    // About ±290,000 years of milliseconds: beyond that the conversion would overflow.
    constexpr double kLimit = 9.0e12;
    if (!std::isfinite(seconds) || std::abs(seconds) > kLimit) {
        return {};
    }
    return QDateTime::fromMSecsSinceEpoch(
        qint64(std::llround((seconds + double(kReferenceDateOffset)) * 1000.0)), Qt::UTC);
}

QDateTime RelativeDate::now()
{
    Clock clock;
    {
        ClockState& state = clockState();
        const std::lock_guard lock(state.mutex);
        clock = state.clock;
    }
    return clock ? clock() : QDateTime::currentDateTime();
}

QDateTime RelativeDate::startOfToday()
{
    return startOfDay(now());
}

QDateTime RelativeDate::todayWithHour(int hour, int minute)
{
    return dateWithHour(now(), hour, minute);
}

QDateTime RelativeDate::newCFDateWithUTCDateTime(const UTCDateTime& dateTime)
{
    const QDateTime date = newCFDateWithBSDTimeSpec(timeSpecFromUTCDateTime(dateTime));
    if (!date.isValid()) {
        raiseConversionFailure(QStringLiteral("UCConvertUTCDateTimeToCFAbsoluteTime"));
    }
    return date;
}

QDateTime RelativeDate::newCFDateWithBSDTimeSpec(const BSDTimeSpec& timeSpec)
{
    // A date holds milliseconds. Rounding to the nearest one (not truncating) lets a date come
    // back unchanged from its trip through the 1/65536 s fraction of the legacy date-time.
    const qint64 milliseconds = floorDiv(timeSpec.nanoseconds, kNanosecondsPerMillisecond) +
                                (floorMod(timeSpec.nanoseconds, kNanosecondsPerMillisecond) >=
                                         kNanosecondsPerMillisecond / 2
                                     ? 1
                                     : 0);
    qint64 sinceEpoch = 0;
    if (qMulOverflow(timeSpec.seconds, qint64(1000), &sinceEpoch) ||
        qAddOverflow(sinceEpoch, milliseconds, &sinceEpoch)) {
        return {};
    }
    return QDateTime::fromMSecsSinceEpoch(sinceEpoch);
}

QDateTime RelativeDate::startOfEra(const QDateTime& date)
{
    if (!date.isValid()) {
        return {};
    }
    // Qt numbers years across both eras without a year 0: the current era starts with year 1,
    // and the era before it is built, as from its era alone, with year 1 of that era (-1).
    const int year = localParts(date).year > 0 ? 1 : -1;
    return firstDay(year, 1).startOfDay();
}

QDateTime RelativeDate::startOfYear(const QDateTime& date)
{
    if (!date.isValid()) {
        return {};
    }
    return firstDay(localParts(date).year, 1).startOfDay();
}

QDateTime RelativeDate::startOfMonth(const QDateTime& date)
{
    if (!date.isValid()) {
        return {};
    }
    const QCalendar::YearMonthDay parts = localParts(date);
    return firstDay(parts.year, parts.month).startOfDay();
}

QDateTime RelativeDate::startOfDay(const QDateTime& date)
{
    if (!date.isValid()) {
        return {};
    }
    return date.toLocalTime().date().startOfDay();
}

QDateTime RelativeDate::dateWithHour(const QDateTime& date, int hour, int minute)
{
    if (!date.isValid()) {
        return {};
    }
    const QDateTime local = date.toLocalTime();
    const qint64 hours = hour == -1 ? local.time().hour() : hour;
    const qint64 minutes = hours * 60 + (minute == -1 ? local.time().minute() : minute);
    // Out-of-range values roll over into the neighbouring days, as calendar components do.
    const qint64 dayShift = floorDiv(minutes, kMinutesPerDay);
    const auto minuteOfDay = static_cast<int>(floorMod(minutes, kMinutesPerDay));
    return localDateTime(local.date().addDays(dayShift), QTime(minuteOfDay / 60, minuteOfDay % 60));
}

QDateTime RelativeDate::nextHour(const QDateTime& date, int hour, int minute)
{
    const QDateTime sameDay = dateWithHour(date, hour, minute);
    return inThePast(sameDay) ? dateOffsetBy(sameDay, 1, kDay) : sameDay;
}

QDateTime RelativeDate::dateOffsetBy(const QDateTime& date, int count, int scale)
{
    return dateOffsetBy(date, count, false, scale);
}

QDateTime RelativeDate::dateOffsetBy(const QDateTime& date, int count, bool reverseDirection,
                                     int scale)
{
    if (count == 0 || !date.isValid()) {
        return date;
    }
    const qint64 amount = reverseDirection ? -qint64(count) : qint64(count);
    switch (scale) {
    case kMinute:
        return date.toLocalTime().addSecs(amount * 60);
    case kHour:
        return date.toLocalTime().addSecs(amount * 3600);
    case kDay:
        return shiftDays(date, amount);
    case kWeek:
        return shiftDays(date, amount * 7);
    case kMonth:
        return shiftMonths(date, amount);
    case kYear:
        return shiftMonths(date, amount * 12);
    default:
        return date;
    }
}

bool RelativeDate::inThePast(const QDateTime& date)
{
    const std::optional<qint64> interval = intervalFromNow(date);
    return interval && *interval < 0;
}

bool RelativeDate::inTheFuture(const QDateTime& date)
{
    const std::optional<qint64> interval = intervalFromNow(date);
    return interval && *interval > 0;
}

bool RelativeDate::notInThePast(const QDateTime& date)
{
    const std::optional<qint64> interval = intervalFromNow(date);
    return interval && *interval >= 0;
}

bool RelativeDate::notInTheFuture(const QDateTime& date)
{
    const std::optional<qint64> interval = intervalFromNow(date);
    return interval && *interval <= 0;
}

UTCDateTime RelativeDate::toUTCDateTime(const QDateTime& date)
{
    const QString api = QStringLiteral("UCConvertCFAbsoluteTimeToUTCDateTime");
    if (!date.isValid()) {
        raiseConversionFailure(api);
    }
    const BSDTimeSpec timeSpec = toBSDTimeSpec(date);
    const qint64 seconds = timeSpec.seconds + kSecondsFrom1904To1970;
    if (seconds < 0 || seconds >= kUTCSecondsLimit) {
        raiseConversionFailure(api);
    }
    return {static_cast<quint16>(seconds >> 32), static_cast<quint32>(seconds & 0xFFFFFFFF),
            static_cast<quint16>((timeSpec.nanoseconds << 16) / kNanosecondsPerSecond)};
}

BSDTimeSpec RelativeDate::toBSDTimeSpec(const QDateTime& date)
{
    if (!date.isValid()) {
        return {};
    }
    const qint64 sinceEpoch = date.toMSecsSinceEpoch();
    return {floorDiv(sinceEpoch, 1000), floorMod(sinceEpoch, 1000) * kNanosecondsPerMillisecond};
}

QDateTime RelativeDate::earlierDate(const QDateTime& a, const QDateTime& b)
{
    if (!a.isValid() || !b.isValid()) {
        return a.isValid() ? a : b;
    }
    return b < a ? b : a;
}

QDateTime RelativeDate::laterDate(const QDateTime& a, const QDateTime& b)
{
    if (!a.isValid() || !b.isValid()) {
        return a.isValid() ? a : b;
    }
    return a < b ? b : a;
}

std::optional<int> RelativeDate::dayOffsetFromToday(const QDateTime& date)
{
    if (!date.isValid()) {
        return std::nullopt;
    }
    const DayBoundaries day = currentDayBoundaries();
    const qint64 instant = date.toMSecsSinceEpoch();
    if (instant < day.startOfYesterday || instant >= day.startOfDayAfterTomorrow) {
        return std::nullopt;
    }
    if (instant >= day.startOfTomorrow) {
        return 1;
    }
    return instant >= day.startOfToday ? 0 : -1;
}
