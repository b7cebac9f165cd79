#include "activity/MonitorProgressIndicator.h"

#include "foundation/RelativeDate.h"

#include <QApplication>
#include <QDateTime>
#include <QPainter>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <vector>

namespace {
constexpr double kStripeSpeed = 16.0; // points a second
constexpr double kTileWidth = 100.0;

double secondsSinceReferenceDate()
{
    return RelativeDate::secondsSinceReferenceDate(QDateTime::currentDateTimeUtc());
}

struct Animation
{
    // Weak: an indicator that goes away simply drops out at the next tick.
    std::vector<QPointer<MonitorProgressIndicator>> members;
    QPointer<QTimer> timer;
    MonitorProgressIndicator::Clock clock = secondsSinceReferenceDate;
};

Animation& animation()
{
    static Animation shared; // main thread only
    return shared;
}

QColor blended(const QColor& from, const QColor& toward, double fraction)
{
    const auto mix = [fraction](double a, double b) {
        return a + (b - a) * fraction;
    };
    return QColor::fromRgbF(float(mix(from.redF(), toward.redF())),
                            float(mix(from.greenF(), toward.greenF())),
                            float(mix(from.blueF(), toward.blueF())));
}

QPainterPath capsule(const QRectF& rect)
{
    QPainterPath path;
    const double radius = rect.height() / 2;
    path.addRoundedRect(rect, radius, radius);
    return path;
}
} // namespace

MonitorProgressIndicator::MonitorProgressIndicator(QWidget* parent)
    : QWidget(parent)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAccessibleName(tr("Progress"));
}

MonitorProgressIndicator::~MonitorProgressIndicator()
{
    leaveAnimation();
}

void MonitorProgressIndicator::setClock(Clock clock)
{
    animation().clock = clock ? std::move(clock) : Clock(secondsSinceReferenceDate);
}

QTimer* MonitorProgressIndicator::animationTimer()
{
    return animation().timer.data();
}

QSize MonitorProgressIndicator::sizeHint() const
{
    return {80, 12};
}

void MonitorProgressIndicator::setMinValue(double value)
{
    m_minValue = value;
    recomputeXValue();
}

void MonitorProgressIndicator::setMaxValue(double value)
{
    m_maxValue = value;
    recomputeXValue();
}

void MonitorProgressIndicator::setDoubleValue(double value)
{
    m_doubleValue = value;
    recomputeXValue();
}

double MonitorProgressIndicator::fillFraction(double value, double minimum, double maximum)
{
    if (value <= minimum) {
        return 0;
    }
    if (value >= maximum) {
        return 1;
    }
    return (value - minimum) / (maximum - minimum);
}

void MonitorProgressIndicator::recomputeXValue()
{
    const double fraction = fillFraction(m_doubleValue, m_minValue, m_maxValue);
    const double x = std::round(std::max(0, width() - 2) * fraction);
    if (x != m_xValue) {
        m_xValue = x;
        requestRedraw();
    }
}

void MonitorProgressIndicator::requestRedraw()
{
    ++m_redrawRequests;
    update();
}

void MonitorProgressIndicator::setIndeterminate(bool indeterminate)
{
    if (indeterminate == m_indeterminate) {
        return;
    }
    m_indeterminate = indeterminate;
    m_indeterminateTimeOffset = std::fmod(animation().clock(), 0.16);
    requestRedraw();
    updateMembership();
}

void MonitorProgressIndicator::setAnimating(bool animating)
{
    if (animating == m_animating) {
        return;
    }
    m_animating = animating;
    updateMembership();
}

void MonitorProgressIndicator::updateMembership()
{
    if (m_indeterminate && m_animating) {
        joinAnimation();
    } else {
        leaveAnimation();
    }
}

void MonitorProgressIndicator::joinAnimation()
{
    Animation& shared = animation();
    if (std::find(shared.members.cbegin(), shared.members.cend(), this) == shared.members.cend()) {
        shared.members.emplace_back(this);
    }
    if (!shared.timer) {
        auto* timer = new QTimer(QCoreApplication::instance());
        timer->setInterval(kAnimationIntervalMs);
        QObject::connect(timer, &QTimer::timeout,
                         &MonitorProgressIndicator::animateIndeterminateTime);
        shared.timer = timer;
        timer->start();
    }
}

void MonitorProgressIndicator::leaveAnimation()
{
    auto& members = animation().members;
    std::erase_if(members, [this](const auto& member) { return member == this; });
}

void MonitorProgressIndicator::animateIndeterminateTime()
{
    Animation& shared = animation();
    std::erase_if(shared.members, [](const auto& member) { return member.isNull(); });
    for (const auto& member : shared.members) {
        member->requestRedraw();
    }
    if (shared.members.empty() && shared.timer) {
        shared.timer->stop();
        shared.timer->deleteLater();
        shared.timer = nullptr;
    }
}

double MonitorProgressIndicator::stripeOffset(double now) const
{
    const double s =
        std::round(std::fmod((now - m_indeterminateTimeOffset) * kStripeSpeed, kTileWidth));
    return s != 0 ? s - kTileWidth : 0;
}

void MonitorProgressIndicator::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    recomputeXValue();
}

void MonitorProgressIndicator::changeEvent(QEvent* event)
{
    // The colours follow the palette: a new one (dark or light) rebuilds them.
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::StyleChange) {
        m_pathRect = QRect();
    }
    QWidget::changeEvent(event);
}

void MonitorProgressIndicator::rebuildGeometry()
{
    m_pathRect = rect();
    m_path = capsule(QRectF(rect()).adjusted(1, 1, -1, -1));
    const QRectF inset = QRectF(rect()).adjusted(2, 2, -2, -2);
    m_insetPath = capsule(inset);
    const QColor background = palette().color(QPalette::Base);
    m_tintColor = palette().color(QPalette::Highlight);
    m_progressTailColor = blended(m_tintColor, background, 0.8);
    m_progressGradient = QLinearGradient(0, 0, 1, 0);
    m_progressGradient.setColorAt(0, m_progressTailColor);
    m_progressGradient.setColorAt(1, m_tintColor);
    m_indeterminateGradient = QLinearGradient(0, 0, kTileWidth, 0);
    m_indeterminateGradient.setColorAt(0, m_progressTailColor);
    m_indeterminateGradient.setColorAt(0.5, blended(m_tintColor, background, 0.4));
    m_indeterminateGradient.setColorAt(1, m_progressTailColor);
    m_indeterminateGradient.setSpread(QGradient::RepeatSpread); // tiles 100 points wide
}

void MonitorProgressIndicator::paintEvent(QPaintEvent*)
{
    if (m_pathRect != rect()) {
        rebuildGeometry();
    }
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF inner = m_insetPath.boundingRect();
    painter.save();
    painter.setClipPath(m_insetPath);
    if (m_indeterminate) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(m_indeterminateGradient);
        painter.setBrushOrigin(QPointF(inner.left() + stripeOffset(animation().clock()), 0));
        painter.drawRect(inner);
    } else {
        const double band = std::floor(inner.width() * 0.25);
        const double end = inner.left() + m_xValue;
        QLinearGradient gradient(end - band, 0, end, 0);
        gradient.setStops(m_progressGradient.stops());
        painter.fillRect(QRectF(end - band, inner.top(), band, inner.height()), gradient);
        painter.fillRect(QRectF(inner.left(), inner.top(), std::max(0.0, end - band - inner.left()),
                                inner.height()),
                         m_progressTailColor);
    }
    painter.restore();
    painter.setPen(QPen(palette().color(QPalette::Mid), 1.0));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(m_path);
}
