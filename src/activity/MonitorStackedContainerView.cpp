#include "activity/MonitorStackedContainerView.h"

#include "activity/WTLegacyViewController.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

MonitorStackedContainerView::MonitorStackedContainerView(QWidget* parent)
    : StackedPartView(parent)
{
    setCursor(Qt::PointingHandCursor);
    // Reached with Tab; a click toggles the pane without leaving a focus ring behind.
    setFocusPolicy(Qt::TabFocus);
    setAccessibleDescription(tr("Space shows or hides the details; the menu key opens the "
                                "command's menu."));
}

QList<QColor> MonitorStackedContainerView::gradientColors() const
{
    QColor grey = palette().color(QPalette::Dark);
    grey.setAlphaF(0.25);
    QColor separator = palette().color(QPalette::Mid);
    separator.setAlphaF(1.0);
    return {grey, separator, separator, grey};
}

// Labels and other passive children let clicks through to here; buttons keep theirs.
void MonitorStackedContainerView::mousePressEvent(QMouseEvent* event)
{
    event->setAccepted(event->button() == Qt::LeftButton);
}

void MonitorStackedContainerView::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) {
        StackedPartView::mouseReleaseEvent(event);
        return;
    }
    if (event->modifiers().testFlag(Qt::ControlModifier)) {
        Q_EMIT customContextMenuRequested(event->position().toPoint());
        return;
    }
    toggleDetails();
}

void MonitorStackedContainerView::toggleDetails()
{
    if (WTLegacyViewController* controller = WTLegacyViewController::controllerOfView(this)) {
        controller->tryToPerform("toggleDetails", this);
    }
}

void MonitorStackedContainerView::keyPressEvent(QKeyEvent* event)
{
    switch (event->key()) {
    case Qt::Key_Space:
    case Qt::Key_Return:
    case Qt::Key_Enter:
        toggleDetails();
        return;
    case Qt::Key_Menu:
        Q_EMIT customContextMenuRequested(rect().center());
        return;
    case Qt::Key_F10:
        if (event->modifiers().testFlag(Qt::ShiftModifier)) {
            Q_EMIT customContextMenuRequested(rect().center());
            return;
        }
        break;
    default:
        break;
    }
    StackedPartView::keyPressEvent(event);
}

void MonitorStackedContainerView::paintEvent(QPaintEvent* event)
{
    StackedPartView::paintEvent(event);
    if (!hasFocus()) {
        return;
    }
    // The highlight colour reads on light and dark palettes alike; styles differ too much in
    // whether, and how faintly, they ring a plain widget.
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(QRectF(rect()).adjusted(1.5, 1.5, -1.5, -1.5), 4, 4);
}

void MonitorStackedContainerView::focusInEvent(QFocusEvent* event)
{
    StackedPartView::focusInEvent(event);
    update();
}

void MonitorStackedContainerView::focusOutEvent(QFocusEvent* event)
{
    StackedPartView::focusOutEvent(event);
    update();
}
