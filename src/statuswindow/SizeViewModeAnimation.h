#pragma once

#include <QAbstractAnimation>
#include <QEasingCurve>
#include <QPointer>

class ArchiveStatusSizeView;

// Moves a size view's two optional segments from one mode's visible fractions to another's,
// over a second, easing in and out. Runs on the animation timer and never blocks; stepping it
// with setCurrentTime gives the same values without one. Main thread only.
class SizeViewModeAnimation : public QAbstractAnimation
{
    Q_OBJECT

public:
    static constexpr int kDurationMs = 1000;

    explicit SizeViewModeAnimation(ArchiveStatusSizeView* view, QObject* parent = nullptr);

    ArchiveStatusSizeView* view() const { return m_view; }
    double fromShowFree() const { return m_fromShowFree; }
    double toShowFree() const { return m_toShowFree; }
    double fromShowSize() const { return m_fromShowSize; }
    double toShowSize() const { return m_toShowSize; }
    // Read at every step; changed while the animation is stopped.
    void setShowFree(double from, double to);
    void setShowSize(double from, double to);

    int duration() const override { return kDurationMs; }

protected:
    void updateCurrentTime(int currentTime) override;

private:
    QPointer<ArchiveStatusSizeView> m_view;
    QEasingCurve m_curve;
    double m_fromShowFree = 0;
    double m_toShowFree = 0;
    double m_fromShowSize = 0;
    double m_toShowSize = 0;
};
