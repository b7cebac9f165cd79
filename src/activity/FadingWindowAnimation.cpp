#include "activity/FadingWindowAnimation.h"

#include "preferences/MonitorDefaults.h"

#include <QWidget>
#include <algorithm>

std::optional<double> FadingWindowAnimation::fadedOpacity(double preference)
{
    if (preference == 1.0) {
        return std::nullopt;
    }
    if (preference == 0) {
        return 0.5;
    }
    return std::clamp(preference, 0.2, 1.0);
}

std::unique_ptr<FadingWindowAnimation> FadingWindowAnimation::initWithWindow(QWidget* window,
                                                                             bool fadingIn)
{
    const double start = window->windowOpacity();
    if (fadingIn) {
        return std::make_unique<FadingWindowAnimation>(window, start, 1.0, kFadeInMs,
                                                       QEasingCurve::Linear);
    }
    const std::optional<double> end =
        fadedOpacity(MonitorDefaults::standardUserDefaults().fadedWindowOpacity());
    if (!end) {
        return nullptr;
    }
    return std::make_unique<FadingWindowAnimation>(window, start, *end, kFadeOutMs,
                                                   QEasingCurve::InOutQuad);
}

FadingWindowAnimation::FadingWindowAnimation(QWidget* window, double startAlpha, double endAlpha,
                                             int durationMs, QEasingCurve curve)
    : m_window(window)
    , m_startAlpha(startAlpha)
    , m_endAlpha(endAlpha)
{
    setStartValue(0.0);
    setEndValue(1.0);
    setDuration(durationMs);
    setEasingCurve(curve);
}

void FadingWindowAnimation::updateCurrentValue(const QVariant& value)
{
    if (m_window) {
        m_window->setWindowOpacity(m_startAlpha + (m_endAlpha - m_startAlpha) * value.toDouble());
    }
}
