#pragma once

#include <QColor>
#include <QLinearGradient>
#include <QPainterPath>
#include <QPointer>
#include <QWidget>
#include <functional>

class QTimer;

// The capsule-shaped small progress bar of a collapsed pane. Its paths and colours are cached
// per size, and a new value repaints only when the fill end moves by a whole pixel. Every
// indeterminate, animating indicator moves its stripes on one shared 0.1 s timer, which stops
// itself once none is left. Main thread only.
class MonitorProgressIndicator : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(double minValue READ minValue WRITE setMinValue)
    Q_PROPERTY(double maxValue READ maxValue WRITE setMaxValue)
    Q_PROPERTY(double doubleValue READ doubleValue WRITE setDoubleValue)
    Q_PROPERTY(bool indeterminate READ isIndeterminate WRITE setIndeterminate)
    Q_PROPERTY(bool animating READ isAnimating WRITE setAnimating)

public:
    // Seconds since 2001-01-01; the stripes' phase follows it.
    using Clock = std::function<double()>;
    static constexpr int kAnimationIntervalMs = 100;

    explicit MonitorProgressIndicator(QWidget* parent = nullptr);
    ~MonitorProgressIndicator() override;

    double minValue() const { return m_minValue; }
    double maxValue() const { return m_maxValue; }
    double doubleValue() const { return m_doubleValue; }
    bool isIndeterminate() const { return m_indeterminate; }
    bool isAnimating() const { return m_animating; }
    void setMinValue(double value);
    void setMaxValue(double value);
    void setDoubleValue(double value);
    void setIndeterminate(bool indeterminate);
    void setAnimating(bool animating);

    // The fill end, in pixels from the inner left edge.
    double xValue() const { return m_xValue; }
    // How many repaints the indicator has asked for.
    quint64 redrawRequests() const { return m_redrawRequests; }
    // The first stripe's offset from the left edge at the given time.
    double stripeOffset(double now) const;

    static void setClock(Clock clock);
    // How full a bar is for the value between the two ends: the minimum is asked first, so a
    // value at a minimum that is not below the maximum is empty.
    static double fillFraction(double value, double minimum, double maximum);
    // The shared timer while any indicator animates; null otherwise.
    static QTimer* animationTimer();
    static void animateIndeterminateTime();

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void recomputeXValue();
    void requestRedraw();
    void rebuildGeometry();
    void updateMembership();
    void joinAnimation();
    void leaveAnimation();

    double m_minValue = 0;
    double m_maxValue = 100;
    double m_doubleValue = 0;
    bool m_indeterminate = false;
    bool m_animating = false;
    QRect m_pathRect;
    QPainterPath m_path;
    QPainterPath m_insetPath;
    QColor m_tintColor;
    QColor m_progressTailColor;
    QLinearGradient m_progressGradient;
    QLinearGradient m_indeterminateGradient;
    double m_xValue = 0;
    double m_indeterminateTimeOffset = 0;
    quint64 m_redrawRequests = 0;
};
