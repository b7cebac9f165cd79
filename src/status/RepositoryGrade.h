#pragma once

#include "status/StatusIndicators.h"

#include <QString>
#include <QVariant>

class ImpermanentValues;
class MonitorDefaults;
class RepositoryStatus;

// The grading of one archive as its status view shows it: an archive that needs repair is only
// that; otherwise its capture, verify and space indicators and their summary. The user's
// "ignore" choices are impermanent values under the archive's UUID.
class RepositoryGrade
{
public:
    static inline const QString kIgnoreRepairWarnings = QStringLiteral("ignoreRepairWarnings");
    static inline const QString kIgnoreCaptureWarnings = QStringLiteral("ignoreCaptureWarnings");
    static inline const QString kIgnoreVerifyWarnings = QStringLiteral("ignoreVerifyWarnings");
    static inline const QString kIgnoreSizeWarnings = QStringLiteral("ignoreSizeWarnings");

    bool needsRepair = false;
    // "<name> needs repair" when it does.
    QString repairText;
    StatusIndicators capture;
    StatusIndicators verify;
    StatusIndicators space;
    // Each light lit when any indicator's is.
    StatusIndicators summary;
    double captureInterval = 0;
    double verifyInterval = 0;
    // The share of the archive's room in use, 0 when nothing is known of its sizes.
    double usedFraction = 0;

    bool isWarning() const { return summary.warningLight; }
    bool isCritical() const { return summary.criticalLight; }

    // Only a number that is true silences a warning: a stray string never does.
    static bool countsAsIgnored(const QVariant& value);

    // Main thread only. `ignores` may be none: nothing is ignored then.
    static RepositoryGrade gradeStatus(RepositoryStatus& status, const MonitorDefaults& defaults,
                                       ImpermanentValues* ignores);
};
