#include "activity/MonitorWindowController.h"

#include "preferences/MonitorDefaults.h"

#include <QLabel>
#include <QWidget>

MonitorWindowController::MonitorWindowController(QObject* parent)
    : FadingWindowController(parent)
{}

MonitorWindowController::~MonitorWindowController()
{
    delete m_detailsHintPopover.data();
}

QString MonitorWindowController::detailsHintShownKey() const
{
    return QStringLiteral("KSVer21DetailsHint.") + QString::fromLatin1(metaObject()->className());
}

bool MonitorWindowController::detailsHintShown() const
{
    return m_detailsHintPopover && m_detailsHintPopover->isVisible();
}

void MonitorWindowController::mouseEntered()
{
    FadingWindowController::mouseEntered();
    if (detailsHintShown() ||
        MonitorDefaults::standardUserDefaults().boolForKey(detailsHintShownKey())) {
        return;
    }
    QWidget* anchor = detailsHintPopoverView();
    if (anchor == nullptr) {
        return;
    }
    if (!m_detailsHintPopover) {
        // A hint that took the pointer would make the window see it leave, close the hint and
        // show it again as the pointer came back: it must never take input.
        m_detailsHintPopover =
            new QLabel(tr("Click a pane to show or hide its details."), nullptr,
                       Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowTransparentForInput |
                           Qt::WindowDoesNotAcceptFocus);
        m_detailsHintPopover->setAttribute(Qt::WA_TransparentForMouseEvents);
        m_detailsHintPopover->setAttribute(Qt::WA_ShowWithoutActivating);
        m_detailsHintPopover->setFocusPolicy(Qt::NoFocus);
        m_detailsHintPopover->setAccessibleName(tr("Hint"));
        m_detailsHintPopover->setMargin(8);
        m_detailsHintPopover->setForegroundRole(QPalette::ToolTipText);
        m_detailsHintPopover->setBackgroundRole(QPalette::ToolTipBase);
        m_detailsHintPopover->setAutoFillBackground(true);
    }
    m_detailsHintPopover->adjustSize();
    m_detailsHintPopover->move(anchor->mapToGlobal(QPoint(0, anchor->height())));
    m_detailsHintPopover->show();
}

void MonitorWindowController::mouseExited()
{
    FadingWindowController::mouseExited();
    // Where input shapes are not honoured, the hint still takes the pointer: that is no leave.
    if (!cursorIsOverWindow()) {
        closeDetailsHint();
    }
}

void MonitorWindowController::closeDetailsHint()
{
    if (m_detailsHintPopover) {
        m_detailsHintPopover->hide();
    }
}

void MonitorWindowController::didToggleDetails()
{
    MonitorDefaults::standardUserDefaults().setBool(true, detailsHintShownKey());
    closeDetailsHint();
}
