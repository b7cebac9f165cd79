#include "statuswindow/SizeViewModeAnimation.h"

#include "statuswindow/ArchiveStatusSizeView.h"

SizeViewModeAnimation::SizeViewModeAnimation(ArchiveStatusSizeView* view, QObject* parent)
    : QAbstractAnimation(parent)
    , m_view(view)
    , m_curve(QEasingCurve::BezierSpline)
{
    // Slow at both ends: the segments start and settle without a jolt.
    m_curve.addCubicBezierSegment(QPointF(0.42, 0), QPointF(0.58, 1), QPointF(1, 1));
}

void SizeViewModeAnimation::setShowFree(double from, double to)
{
    m_fromShowFree = from;
    m_toShowFree = to;
}

void SizeViewModeAnimation::setShowSize(double from, double to)
{
    m_fromShowSize = from;
    m_toShowSize = to;
}

void SizeViewModeAnimation::updateCurrentTime(int currentTime)
{
    if (!m_view) {
        return;
    }
    const double progress = m_curve.valueForProgress(double(currentTime) / kDurationMs);
    const auto between = [progress](double from, double to) {
        return from + (to - from) * progress;
    };
    m_view->changeShowFree(between(m_fromShowFree, m_toShowFree),
                           between(m_fromShowSize, m_toShowSize));
}
