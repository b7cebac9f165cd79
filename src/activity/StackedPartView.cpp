#include "activity/StackedPartView.h"

#include <QHash>
#include <QLinearGradient>
#include <QMoveEvent>
#include <QPainter>

namespace {
const QHash<QString, QPalette::ColorRole>& semanticRoles()
{
    static const QHash<QString, QPalette::ColorRole> roles{
        {QStringLiteral("window"), QPalette::Window},
        {QStringLiteral("windowBackgroundColor"), QPalette::Window},
        {QStringLiteral("base"), QPalette::Base},
        {QStringLiteral("controlBackgroundColor"), QPalette::Base},
        {QStringLiteral("alternateBase"), QPalette::AlternateBase},
        {QStringLiteral("button"), QPalette::Button},
    };
    return roles;
}
} // namespace

StackedPartView::StackedPartView(QWidget* parent)
    : QWidget(parent)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
}

QColor StackedPartView::backgroundColor() const
{
    if (m_backgroundColor.isValid()) {
        return m_backgroundColor;
    }
    return palette().color(m_backgroundRole);
}

void StackedPartView::setBackgroundColor(const QColor& color)
{
    m_backgroundColor = color;
    update();
}

void StackedPartView::setBackgroundColorSemanticList(const QString& list)
{
    for (const QString& name : list.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const auto role = semanticRoles().constFind(name.trimmed());
        if (role != semanticRoles().constEnd()) {
            // Kept as a role, so that the colour follows a change to a dark or light palette.
            m_backgroundRole = *role;
            m_backgroundColor = QColor();
            update();
            return;
        }
    }
}

void StackedPartView::setHideDivider(bool hide)
{
    m_hideDivider = hide;
    update();
}

bool StackedPartView::drawsDivider() const
{
    return !m_hideDivider && y() >= kDividerOffset;
}

QList<QColor> StackedPartView::gradientColors() const
{
    QColor separator = palette().color(QPalette::Mid);
    separator.setAlphaF(1.0);
    return {backgroundColor(), separator, backgroundColor()};
}

void StackedPartView::moveEvent(QMoveEvent* event)
{
    QWidget::moveEvent(event);
    if (drawsDivider() != m_drewDivider) {
        update();
    }
}

void StackedPartView::paintEvent(QPaintEvent* event)
{
    QPainter painter(this);
    painter.fillRect(event->rect(), backgroundColor());
    m_drewDivider = drawsDivider();
    const QRect divider(0, 0, width(), 1);
    if (!m_drewDivider || !divider.intersects(event->rect())) {
        return;
    }
    QLinearGradient gradient(0, 0, width(), 0);
    const QList<QColor> colors = gradientColors();
    for (qsizetype i = 0; i < colors.size(); ++i) {
        gradient.setColorAt(colors.size() > 1 ? double(i) / double(colors.size() - 1) : 0,
                            colors[i]);
    }
    painter.fillRect(divider, gradient);
}
