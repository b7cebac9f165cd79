#pragma once

#include <QDateTime>
#include <QString>
#include <QVariant>
#include <functional>

// The idle pane's time of the next action: the time alone when it is within 23 hours, the date
// and time when it is further away.
class NextActionDateFormatter
{
public:
    using Clock = std::function<QDateTime()>;
    static constexpr qint64 kLongFormatAfterSeconds = 82800;

    explicit NextActionDateFormatter(Clock clock = {});

    QString stringForObjectValue(const QVariant& value) const;
    QString stringFromDate(const QDateTime& date) const;
    bool usesLongFormat(const QDateTime& date) const;

private:
    Clock m_clock;
};
