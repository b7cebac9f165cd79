#include "status/RepositoryGrade.h"

#include "preferences/ImpermanentValues.h"
#include "preferences/MonitorDefaults.h"
#include "status/RepositoryStatus.h"

#include <algorithm>

namespace {

bool isIgnored(ImpermanentValues* ignores, const QString& key, const QString& uuid)
{
    return ignores != nullptr &&
           RepositoryGrade::countsAsIgnored(ignores->impermanentValueForKey(key, uuid));
}

} // namespace

bool RepositoryGrade::countsAsIgnored(const QVariant& value)
{
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        return value.toDouble() != 0;
    default:
        return false;
    }
}

RepositoryGrade RepositoryGrade::gradeStatus(RepositoryStatus& status,
                                             const MonitorDefaults& defaults,
                                             ImpermanentValues* ignores)
{
    RepositoryGrade grade;
    const QString uuid = status.repositoryUUID();
    if (status.needsRepair()) {
        grade.needsRepair = true;
        grade.repairText = status.displayName() + QStringLiteral(" needs repair");
        grade.summary.criticalLight = !isIgnored(ignores, kIgnoreRepairWarnings, uuid);
        grade.summary.title = grade.repairText;
        return grade;
    }
    if (ignores != nullptr) {
        ignores->setImpermanentValue(QVariant(), kIgnoreRepairWarnings, uuid);
    }

    grade.captureInterval =
        std::max(status.meanCaptureInterval(), defaults.statusMinimunCaptureInterval());
    grade.capture = StatusIndicators::indicatorForAction(
        QStringLiteral("Capture"), QStringLiteral("Captured"), status.lastCaptureDate(),
        grade.captureInterval, MonitorDefaults::kStatusCaptureWarningIntervals,
        MonitorDefaults::kStatusCaptureTruantIntervals, status.captureWarning(),
        isIgnored(ignores, kIgnoreCaptureWarnings, uuid), defaults);

    // Verifying more often than capturing proves nothing new.
    grade.verifyInterval = std::max(defaults.statusMinimunVerifyInterval(), grade.captureInterval);
    grade.verify = StatusIndicators::indicatorForAction(
        QStringLiteral("Verify"), QStringLiteral("Verified"), status.lastVerifyDate(),
        grade.verifyInterval, MonitorDefaults::kStatusVerifyWarningIntervals,
        MonitorDefaults::kStatusVerifyTruantIntervals, status.verifyWarning(),
        isIgnored(ignores, kIgnoreVerifyWarnings, uuid), defaults);

    if (!isIgnored(ignores, kIgnoreSizeWarnings, uuid)) {
        const double size = double(status.repositorySize());
        const double used = size - double(status.repositoryFree());
        const double room = double(status.bestVolumeFree()) + size;
        grade.usedFraction = room > 0 ? used / room : 0;
        grade.space.OKLight = true;
        if (grade.usedFraction >= defaults.statusFreeWarning()) {
            grade.space.OKLight = false;
            grade.space.warningLight = true;
            if (grade.usedFraction >= defaults.statusFreeCritical()) {
                grade.space.warningLight = false;
                grade.space.criticalLight = true;
            }
        }
    }

    for (const StatusIndicators* indicator : {&grade.capture, &grade.verify, &grade.space}) {
        grade.summary.OKLight |= indicator->OKLight;
        grade.summary.warningLight |= indicator->warningLight;
        grade.summary.criticalLight |= indicator->criticalLight;
    }
    return grade;
}
