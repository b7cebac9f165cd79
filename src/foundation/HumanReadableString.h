#pragma once

#include "foundation/RelativeDate.h"

#include <QDateTime>
#include <QString>
#include <optional>

// The English texts the monitor shows for sizes, counts, durations, dates and build versions.
// Stateless apart from the relative-day cache in RelativeDate; callable from any thread.
class HumanReadableString
{
public:
    // Date and time styles: 0 none, 1 short, 2 medium, 3 long, 4 full.
    enum Style : int
    {
        kNoStyle = 0,
        kShortStyle = 1,
        kMediumStyle = 2,
        kLongStyle = 3,
        kFullStyle = 4,
    };

    static QString stringWithReadableSize(quint64 bytes);
    static QString stringWithReadableInt(qint32 value);
    static QString stringWithReadableInteger(long value);
    static QString stringWithReadableLongLong(qint64 value);
    static QString stringWithOrdinalInteger(qint64 value);

    // A missing (invalid) date gives "" in all of these.
    static QString stringWithReadableFullDateTime(const QDateTime& date);
    static QString stringWithReadableShortTime(const QDateTime& date);
    static QString stringWithReadableDateTime(const QDateTime& date, int dateStyle, int timeStyle);
    static QString stringWithReadableDate(const QDateTime& date, int style);
    static QString stringWithReadableTime(const QDateTime& date, int style);

    // A clock display: 00:59, 1:00:00, -01:01.
    static QString stringWithReadableDuration(qint64 seconds);
    // "3 days", "1 hour ago"; scale is a RelativeDate::Scale.
    static QString stringWithReadableDurationScale(qint64 count, int scale);
    static QString stringWithReadableRemainingTime(quint64 seconds, bool precise);
    static QString stringWithReadableBuildVersion(quint32 version);
    // "(null)" for a missing value; raises KSException "Date" when it cannot be converted.
    static QString stringWithUTCDateTime(const std::optional<UTCDateTime>& dateTime);

    static qsizetype UTF8Length(const QString& string);
    // The UTF-8 length plus two bytes of overhead; a missing string (nullptr) counts 2.
    static qsizetype UTF8LengthWithOverhead(const QString* string);
};
