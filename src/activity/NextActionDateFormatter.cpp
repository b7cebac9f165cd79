#include "activity/NextActionDateFormatter.h"

#include "foundation/HumanReadableString.h"

NextActionDateFormatter::NextActionDateFormatter(Clock clock)
    : m_clock(clock ? std::move(clock) : Clock(&QDateTime::currentDateTimeUtc))
{}

QString NextActionDateFormatter::stringForObjectValue(const QVariant& value) const
{
    // A date formatter has no text for what is not a date.
    return value.typeId() == QMetaType::QDateTime ? stringFromDate(value.toDateTime()) : QString();
}

bool NextActionDateFormatter::usesLongFormat(const QDateTime& date) const
{
    return m_clock().secsTo(date) > kLongFormatAfterSeconds;
}

QString NextActionDateFormatter::stringFromDate(const QDateTime& date) const
{
    if (!date.isValid()) {
        return {};
    }
    if (usesLongFormat(date)) {
        return HumanReadableString::stringWithReadableDateTime(date.toLocalTime(),
                                                               HumanReadableString::kMediumStyle,
                                                               HumanReadableString::kShortStyle);
    }
    return HumanReadableString::stringWithReadableShortTime(date.toLocalTime());
}
