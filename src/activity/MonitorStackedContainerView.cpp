#include "activity/MonitorStackedContainerView.h"

#include "activity/WTLegacyViewController.h"

#include <QMouseEvent>

MonitorStackedContainerView::MonitorStackedContainerView(QWidget* parent)
    : StackedPartView(parent)
{
    setCursor(Qt::PointingHandCursor);
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
    if (WTLegacyViewController* controller = WTLegacyViewController::controllerOfView(this)) {
        controller->tryToPerform("toggleDetails", this);
    }
}
