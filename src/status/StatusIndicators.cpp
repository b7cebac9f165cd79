#include "status/StatusIndicators.h"

#include "foundation/RelativeDate.h"
#include "preferences/MonitorDefaults.h"

#include <cmath>

namespace {
constexpr double kDay = 86400;
constexpr double kWeek = 604800;
constexpr double kTwoWeeks = 1209600;
} // namespace

StatusIndicators StatusIndicators::indicatorForAction(
    const QString& action, const QString& agoDescription, const QDateTime& lastAction,
    double interval, const QString& warningIntervalKey, const QString& truantIntervalKey,
    bool warningValue, bool ignore, const MonitorDefaults& defaults)
{
    StatusIndicators indicator;
    if (ignore) {
        indicator.title = action + QStringLiteral(" warnings silenced");
        return indicator;
    }
    // Never done counts as done in the distant past: always overdue.
    const double elapsed = lastAction.isValid()
                               ? double(lastAction.msecsTo(RelativeDate::now())) / 1000.0
                               : std::numeric_limits<double>::infinity();
    const double warning = defaults.doubleForKey(warningIntervalKey) * interval;
    const double truant = defaults.doubleForKey(truantIntervalKey) * interval;
    indicator.OKLight = true;
    if (elapsed >= warning) {
        indicator.OKLight = false;
        indicator.warningLight = true;
        if (elapsed >= truant) {
            indicator.warningLight = false;
            indicator.criticalLight = true;
        }
    }
    indicator.title = agoTitle(agoDescription, lastAction);
    if (warningValue) {
        indicator.warningLight = true;
        indicator.title = action + QStringLiteral(" logged issues");
    }
    return indicator;
}

QString StatusIndicators::agoTitle(const QString& agoDescription, const QDateTime& lastAction)
{
    if (!lastAction.isValid()) {
        return agoDescription + QStringLiteral(" never");
    }
    const double d = double(RelativeDate::startOfToday().msecsTo(lastAction)) / 1000.0;
    // Past two weeks the count switches to weeks, whole weeks plus one, so "14 days ago" is
    // followed by "3 weeks ago": that is how these titles have always read.
    if (d < -kTwoWeeks) {
        return QStringLiteral("%1 %2 weeks ago").arg(agoDescription).arg(unsigned(-d / kWeek) + 1);
    }
    if (d < -kDay) {
        return QStringLiteral("%1 %2 days ago").arg(agoDescription).arg(unsigned(-d / kDay) + 1);
    }
    if (d < 0) {
        return agoDescription + QStringLiteral(" yesterday");
    }
    return agoDescription + QStringLiteral(" today");
}
