#include "activity/MonitorWindowController.h"

#include "platform/WorkspacePlacement.h"
#include "preferences/MonitorDefaults.h"

#include <QEvent>
#include <QLabel>
#include <QWidget>
#include <QWindow>

namespace {
WorkspacePlacement* s_workspacePlacement = nullptr; // main thread only
} // namespace

MonitorWindowController::MonitorWindowController(QObject* parent)
    : FadingWindowController(parent)
{}

void MonitorWindowController::setWorkspacePlacement(WorkspacePlacement* placement)
{
    s_workspacePlacement = placement;
}

void MonitorWindowController::setWindow(QWidget* window, QScrollArea* scrollView)
{
    FadingWindowController::setWindow(window, scrollView);
    const MonitorDefaults& defaults = MonitorDefaults::standardUserDefaults();
    m_joinAllWorkspaces = defaults.monitorSpacesJoinAll();
    m_moveToActiveWorkspace = defaults.monitorSpacesMoveToActive();
}

bool MonitorWindowController::eventFilter(QObject* watched, QEvent* event)
{
    // Show reaches the window before the window system maps it, which is when a window manager
    // reads the wish; it drops the wish when the window is hidden, so every show asks again.
    if (watched == window() && event->type() == QEvent::Show && !event->spontaneous()) {
        placeOnWorkspaces();
    }
    return FadingWindowController::eventFilter(watched, event);
}

void MonitorWindowController::placeOnWorkspaces()
{
    QWindow* handle = window()->windowHandle();
    if (s_workspacePlacement == nullptr || handle == nullptr) {
        return;
    }
    // A window on every workspace is on the active one already; moving it there would pin it
    // to that one alone.
    if (m_joinAllWorkspaces) {
        s_workspacePlacement->joinAllWorkspaces(*handle);
    } else if (m_moveToActiveWorkspace) {
        s_workspacePlacement->moveToActiveWorkspace(*handle);
    }
}

void MonitorWindowController::orderFront(bool force)
{
    QWidget* shown = window();
    if (shown->isMinimized()) {
        shown->setWindowState(shown->windowState() & ~Qt::WindowMinimized);
    }
    // A hidden window is placed as it shows; one already shown may sit on another workspace.
    if (shown->isVisible() && !m_joinAllWorkspaces) {
        placeOnWorkspaces();
    }
    shown->show();
    shown->raise();
    if (force) {
        shown->activateWindow();
    }
}

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
