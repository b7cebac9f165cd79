#include "foundation/HumanReadableString.h"

#include "exception/BuildVersion.h"

#include <QLocale>
#include <QStringList>
#include <algorithm>
#include <array>
#include <limits>

namespace {
struct UnitName
{
    QLatin1String singular;
    QLatin1String plural;

    QLatin1String forCount(quint64 count) const { return count == 1 ? singular : plural; }
};

// Indexed by RelativeDate::Scale.
constexpr std::array<UnitName, 6> kScaleUnits{{
    {QLatin1String("minute"), QLatin1String("minutes")},
    {QLatin1String("hour"), QLatin1String("hours")},
    {QLatin1String("day"), QLatin1String("days")},
    {QLatin1String("week"), QLatin1String("weeks")},
    {QLatin1String("month"), QLatin1String("months")},
    {QLatin1String("year"), QLatin1String("years")},
}};
constexpr UnitName kSecondUnit{QLatin1String("second"), QLatin1String("seconds")};

constexpr quint64 kSecondsPerMinute = 60;
constexpr quint64 kSecondsPerHour = 3600;
constexpr quint64 kSecondsPerDay = 86400;

quint64 magnitude(qint64 value)
{
    // Negating in unsigned arithmetic keeps the most negative value representable.
    return value < 0 ? 0 - static_cast<quint64>(value) : static_cast<quint64>(value);
}

// The fixed "#,###;0;-#,###" pattern: English grouping whatever the user's locale.
QString groupedDecimal(qint64 value)
{
    QString digits = QString::number(magnitude(value));
    for (qsizetype position = digits.size() - 3; position > 0; position -= 3) {
        digits.insert(position, u',');
    }
    return value < 0 ? u'-' + digits : digits;
}

QString twoDigits(quint64 value)
{
    return QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0'));
}

bool isFieldSeparator(QChar character)
{
    return character.isSpace() || character == u',';
}

// Calls visit(text, isField) for each quoted literal, run of one repeated pattern letter or
// other character of a date pattern, in order.
template <typename Visit> void forEachPatternPiece(QStringView pattern, Visit visit)
{
    qsizetype start = 0;
    while (start < pattern.size()) {
        const QChar first = pattern.at(start);
        qsizetype end = start + 1;
        if (first == u'\'') {
            while (end < pattern.size() && pattern.at(end) != u'\'') {
                ++end;
            }
            end = qMin(end + 1, pattern.size());
        } else {
            while (end < pattern.size() && pattern.at(end) == first) {
                ++end;
            }
        }
        visit(pattern.mid(start, end - start), first.isLetter());
        start = end;
    }
}

// Drops each run of `letter` at least `minimumRun` long, together with the blanks and commas
// that tie it to the rest of the pattern.
QString withoutField(const QString& pattern, QChar letter, qsizetype minimumRun)
{
    QString result;
    bool skipSeparators = false;
    forEachPatternPiece(pattern, [&](QStringView piece, bool isField) {
        if (isField && piece.front() == letter && piece.size() >= minimumRun) {
            skipSeparators = true;
            return;
        }
        if (skipSeparators && std::all_of(piece.begin(), piece.end(), isFieldSeparator)) {
            return;
        }
        skipSeparators = false;
        result += piece;
    });
    if (skipSeparators) {
        while (!result.isEmpty() && isFieldSeparator(result.back())) {
            result.chop(1);
        }
    }
    return result;
}

QString withAbbreviatedMonths(const QString& pattern)
{
    QString result;
    forEachPatternPiece(pattern, [&result](QStringView piece, bool isField) {
        const bool fullMonthName = isField && piece == u"MMMM";
        result += fullMonthName ? QStringView(u"MMM") : piece;
    });
    return result;
}

// Qt's locales know two lengths of date. Their long one names the weekday as a full date does;
// the long style drops the weekday and the medium style also abbreviates the month, which is how
// English readers know them (Tuesday, March 5, 2024 / March 5, 2024 / Mar 5, 2024 / 3/5/24).
QString datePattern(const QLocale& locale, int style)
{
    switch (style) {
    case HumanReadableString::kShortStyle:
        return locale.dateFormat(QLocale::ShortFormat);
    case HumanReadableString::kMediumStyle:
        return withAbbreviatedMonths(withoutField(locale.dateFormat(QLocale::LongFormat), u'd', 3));
    case HumanReadableString::kLongStyle:
        return withoutField(locale.dateFormat(QLocale::LongFormat), u'd', 3);
    case HumanReadableString::kFullStyle:
        return locale.dateFormat(QLocale::LongFormat);
    default:
        return {};
    }
}

// Times: the medium style is the long one without the zone. Qt has no long zone names, so the
// full style is the long one.
QString timePattern(const QLocale& locale, int style)
{
    switch (style) {
    case HumanReadableString::kShortStyle:
        return locale.timeFormat(QLocale::ShortFormat);
    case HumanReadableString::kMediumStyle:
        return withoutField(locale.timeFormat(QLocale::LongFormat), u't', 1);
    case HumanReadableString::kLongStyle:
    case HumanReadableString::kFullStyle:
        return locale.timeFormat(QLocale::LongFormat);
    default:
        return {};
    }
}

// Qt's locale patterns are cheap to ask for and the default locale may change while we run, so
// no table of formatters is kept.
QString formatted(const QDateTime& date, int dateStyle, int timeStyle)
{
    const QLocale locale;
    const QString datePart = datePattern(locale, dateStyle);
    const QString timePart = timePattern(locale, timeStyle);
    const QString pattern = (datePart.isEmpty() || timePart.isEmpty()) ? datePart + timePart
                                                                       : datePart + u' ' + timePart;
    return pattern.isEmpty() ? QString() : locale.toString(date.toLocalTime(), pattern);
}

std::optional<QString> relativeDayName(const QDateTime& date)
{
    const std::optional<int> offset = RelativeDate::dayOffsetFromToday(date);
    if (!offset) {
        return std::nullopt;
    }
    switch (*offset) {
    case -1:
        return QStringLiteral("Yesterday");
    case 0:
        return QStringLiteral("Today");
    default:
        return QStringLiteral("Tomorrow");
    }
}

// The "ZZZ" field: +HHMM east of UTC.
QString numericOffset(int offsetFromUtc)
{
    const QChar sign = offsetFromUtc < 0 ? u'-' : u'+';
    const quint64 seconds = magnitude(offsetFromUtc);
    return sign + twoDigits(seconds / kSecondsPerHour) +
           twoDigits((seconds / kSecondsPerMinute) % 60);
}
} // namespace

QString HumanReadableString::stringWithReadableSize(quint64 bytes)
{
    const QLocale locale;
    constexpr auto kLargestSigned = static_cast<quint64>(std::numeric_limits<qint64>::max());
    if (bytes <= kLargestSigned) {
        return locale.formattedDataSize(static_cast<qint64>(bytes), 1, QLocale::DataSizeSIFormat);
    }
    // Qt counts bytes in a signed number; beyond it every size is some exabytes, and the
    // locale's text for one exabyte supplies the unit.
    constexpr qint64 kExabyte = 1000000000000000000;
    QString text = locale.formattedDataSize(kExabyte, 1, QLocale::DataSizeSIFormat);
    const double exabytes = static_cast<double>(bytes) / static_cast<double>(kExabyte);
    return text.replace(locale.toString(1.0, 'f', 1), locale.toString(exabytes, 'f', 1));
}

QString HumanReadableString::stringWithReadableInt(qint32 value)
{
    return groupedDecimal(value);
}

QString HumanReadableString::stringWithReadableInteger(long value)
{
    return groupedDecimal(value);
}

QString HumanReadableString::stringWithReadableLongLong(qint64 value)
{
    return groupedDecimal(value);
}

// There is no ordinal number style to ask here, so this is always the suffix rule. Only 10..19
// take the teen rule, so 111 is "111st": readers of existing texts rely on it.
QString HumanReadableString::stringWithOrdinalInteger(qint64 value)
{
    static constexpr std::array<QLatin1String, 10> kSuffixes{
        QLatin1String("th"), QLatin1String("st"), QLatin1String("nd"), QLatin1String("rd"),
        QLatin1String("th"), QLatin1String("th"), QLatin1String("th"), QLatin1String("th"),
        QLatin1String("th"), QLatin1String("th")};
    const bool teen = static_cast<quint64>(value) - 10 < 10;
    return groupedDecimal(value) + kSuffixes.at(teen ? 0 : magnitude(value) % 10);
}

QString HumanReadableString::stringWithReadableFullDateTime(const QDateTime& date)
{
    return stringWithReadableDateTime(date, kFullStyle, kShortStyle);
}

QString HumanReadableString::stringWithReadableShortTime(const QDateTime& date)
{
    return stringWithReadableTime(date, kShortStyle);
}

QString HumanReadableString::stringWithReadableDateTime(const QDateTime& date, int dateStyle,
                                                        int timeStyle)
{
    if (!date.isValid()) {
        return {};
    }
    if (dateStyle == kNoStyle) {
        return stringWithReadableTime(date, timeStyle);
    }
    if (timeStyle == kNoStyle) {
        return stringWithReadableDate(date, dateStyle);
    }
    if (const std::optional<QString> name = relativeDayName(date)) {
        return *name + u' ' + stringWithReadableTime(date, timeStyle);
    }
    return formatted(date, dateStyle, timeStyle);
}

QString HumanReadableString::stringWithReadableDate(const QDateTime& date, int style)
{
    if (!date.isValid()) {
        return {};
    }
    if (const std::optional<QString> name = relativeDayName(date)) {
        return *name;
    }
    return formatted(date, style, kNoStyle);
}

QString HumanReadableString::stringWithReadableTime(const QDateTime& date, int style)
{
    if (!date.isValid()) {
        return {};
    }
    return formatted(date, kNoStyle, style);
}

QString HumanReadableString::stringWithReadableDuration(qint64 seconds)
{
    const QString sign = seconds < 0 ? QStringLiteral("-") : QString();
    const quint64 total = magnitude(seconds);
    const QString minutesAndSeconds =
        twoDigits((total / kSecondsPerMinute) % 60) + u':' + twoDigits(total % 60);
    if (total >= kSecondsPerHour) {
        return sign + QString::number(total / kSecondsPerHour) + u':' + minutesAndSeconds;
    }
    return sign + minutesAndSeconds;
}

QString HumanReadableString::stringWithReadableDurationScale(qint64 count, int scale)
{
    // An unknown unit is a caller's bug; no text is better than a wrong one.
    Q_ASSERT(scale >= 0 && static_cast<size_t>(scale) < kScaleUnits.size());
    if (scale < 0 || static_cast<size_t>(scale) >= kScaleUnits.size()) {
        return {};
    }
    const quint64 amount = magnitude(count);
    const QLatin1String unit = kScaleUnits.at(static_cast<size_t>(scale)).forCount(amount);
    return QString::number(amount) + u' ' + unit +
           (count < 0 ? QLatin1String(" ago") : QLatin1String());
}

QString HumanReadableString::stringWithReadableRemainingTime(quint64 seconds, bool precise)
{
    if (seconds == 0) {
        return {};
    }
    if (seconds < kSecondsPerMinute && !precise) {
        if (seconds <= 9) {
            return QStringLiteral("less than 10 seconds");
        }
        return seconds <= 15 ? QStringLiteral("about 10 seconds")
                             : QStringLiteral("less than a minute");
    }
    const quint64 days = seconds / kSecondsPerDay;
    const std::array<std::pair<quint64, UnitName>, 4> parts{{
        {days, kScaleUnits.at(RelativeDate::kDay)},
        {seconds / kSecondsPerHour - days * 24, kScaleUnits.at(RelativeDate::kHour)},
        {(seconds / kSecondsPerMinute) % 60, kScaleUnits.at(RelativeDate::kMinute)},
        {seconds % kSecondsPerMinute, kSecondUnit},
    }};
    QStringList words;
    for (const auto& [count, unit] : parts) {
        if (count == 0) {
            continue;
        }
        words.append(QString::number(count) + u' ' + unit.forCount(count));
        if (!precise) {
            break;
        }
    }
    return words.join(u' ');
}

QString HumanReadableString::stringWithReadableBuildVersion(quint32 version)
{
    return BuildVersion::readableString(version);
}

QString HumanReadableString::stringWithUTCDateTime(const std::optional<UTCDateTime>& dateTime)
{
    if (!dateTime) {
        return QStringLiteral("(null)");
    }
    const QDateTime local = RelativeDate::newCFDateWithUTCDateTime(*dateTime).toLocalTime();
    return QLocale().toString(local, u"yyyy-MM-dd HH:mm:ss") + u' ' +
           numericOffset(local.offsetFromUtc());
}

qsizetype HumanReadableString::UTF8Length(const QString& string)
{
    return string.toUtf8().size();
}

qsizetype HumanReadableString::UTF8LengthWithOverhead(const QString* string)
{
    return (string ? UTF8Length(*string) : 0) + 2;
}
