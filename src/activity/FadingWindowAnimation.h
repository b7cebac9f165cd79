#pragma once

#include <QPointer>
#include <QVariantAnimation>
#include <memory>
#include <optional>

class QWidget;

// A window's opacity moving to fully opaque (0.2 s, linear) or to the faded opacity of the
// preferences (3 s, ease in and out). Main thread only.
class FadingWindowAnimation : public QVariantAnimation
{
    Q_OBJECT

public:
    static constexpr int kFadeInMs = 200;
    static constexpr int kFadeOutMs = 3000;

    // None when fading out is switched off (a faded opacity of exactly 1.0).
    static std::unique_ptr<FadingWindowAnimation> initWithWindow(QWidget* window, bool fadingIn);
    // The opacity a window fades to for the "KSFadedWindowOpacity" value; none for 1.0.
    static std::optional<double> fadedOpacity(double preference);

    FadingWindowAnimation(QWidget* window, double startAlpha, double endAlpha, int durationMs,
                          QEasingCurve curve);

    double startAlpha() const { return m_startAlpha; }
    double endAlpha() const { return m_endAlpha; }

protected:
    void updateCurrentValue(const QVariant& value) override;

private:
    QPointer<QWidget> m_window;
    double m_startAlpha;
    double m_endAlpha;
};
