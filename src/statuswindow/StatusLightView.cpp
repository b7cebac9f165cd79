#include "statuswindow/StatusLightView.h"

#include <QEvent>
#include <QPainter>
#include <algorithm>

namespace {
constexpr int kDiameter = 14;

bool onDarkWindow(const QPalette& palette)
{
    return palette.color(QPalette::Window).lightnessF() < 0.5;
}
} // namespace

StatusLightView::StatusLightView(QWidget* parent)
    : QWidget(parent)
{
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    updateAccessibleName();
}

void StatusLightView::setRole(Role role)
{
    if (role == m_role) {
        return;
    }
    m_role = role;
    updateAccessibleName();
    update();
}

void StatusLightView::setAspect(const QString& aspect)
{
    m_aspect = aspect;
    updateAccessibleName();
}

void StatusLightView::setLit(bool lit)
{
    if (lit == m_lit) {
        return;
    }
    m_lit = lit;
    updateAccessibleName();
    update();
    Q_EMIT litChanged(lit);
}

QColor StatusLightView::litColor() const
{
    // Deeper tones against a light window, brighter ones against a dark window: either way
    // the disc stands out without glaring.
    const bool dark = onDarkWindow(palette());
    switch (m_role) {
    case Role::OK:
        return dark ? QColor(0x4c, 0xd1, 0x6a) : QColor(0x2a, 0x9d, 0x46);
    case Role::Warning:
        return dark ? QColor(0xff, 0xbf, 0x2e) : QColor(0xe0, 0x95, 0x00);
    case Role::Critical:
        return dark ? QColor(0xff, 0x5f, 0x52) : QColor(0xd7, 0x2f, 0x24);
    }
    return {};
}

QSize StatusLightView::sizeHint() const
{
    return {kDiameter, kDiameter};
}

QSize StatusLightView::minimumSizeHint() const
{
    return sizeHint();
}

void StatusLightView::updateAccessibleName()
{
    static const char* const kRoleNames[] = {QT_TR_NOOP("OK"), QT_TR_NOOP("Warning"),
                                             QT_TR_NOOP("Critical")};
    QString role = tr(kRoleNames[static_cast<int>(m_role)]);
    if (!m_aspect.isEmpty()) {
        role = m_aspect + QLatin1Char(' ') + role.toLower();
    }
    setAccessibleName(m_lit ? tr("%1 light, lit").arg(role) : tr("%1 light, off").arg(role));
}

void StatusLightView::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::PaletteChange) {
        update();
    }
    QWidget::changeEvent(event);
}

void StatusLightView::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    // A pixel of margin keeps the antialiased rim inside the widget.
    const double side = std::min(width(), height()) - 2.0;
    QRectF disc(0, 0, side, side);
    disc.moveCenter(QRectF(rect()).center());
    if (m_lit) {
        const QColor fill = litColor();
        painter.setPen(QPen(fill.darker(140), 1.0));
        painter.setBrush(fill);
    } else {
        painter.setPen(QPen(palette().color(QPalette::PlaceholderText), 1.2));
        painter.setBrush(Qt::NoBrush);
    }
    painter.drawEllipse(disc);
}
