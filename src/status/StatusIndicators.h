#pragma once

#include <QDateTime>
#include <QString>

class MonitorDefaults;

// One graded aspect of an archive's status (capture, verify or space): three lights and the
// line that describes it.
class StatusIndicators
{
public:
    bool OKLight = false;
    bool warningLight = false;
    bool criticalLight = false;
    QString title;

    // Grades the time since the last run of an action against `interval` times the numbers of
    // intervals the two preference keys hold. `agoDescription` is the past tense that starts the
    // title ("Captured"); `warningValue` says the last run logged issues. Calendar distances
    // count from the start of today, on RelativeDate's clock.
    static StatusIndicators indicatorForAction(const QString& action, const QString& agoDescription,
                                               const QDateTime& lastAction, double interval,
                                               const QString& warningIntervalKey,
                                               const QString& truantIntervalKey, bool warningValue,
                                               bool ignore, const MonitorDefaults& defaults);

    // "Captured today", "Captured 3 days ago", "Captured 3 weeks ago", "Captured never".
    static QString agoTitle(const QString& agoDescription, const QDateTime& lastAction);

    friend bool operator==(const StatusIndicators&, const StatusIndicators&) = default;
};
