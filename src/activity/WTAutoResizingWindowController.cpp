#include "activity/WTAutoResizingWindowController.h"

#include <QResizeEvent>
#include <QScreen>
#include <QScrollArea>
#include <QTimer>
#include <QWidget>

namespace {
QRect screenArea(const QWidget* window)
{
    const QScreen* screen = window->screen();
    return screen != nullptr ? screen->availableGeometry() : QRect(0, 0, 1024, 768);
}

QMargins reportedFrameMargins(const QWidget* window)
{
    const QRect outer = window->frameGeometry();
    const QRect inner = window->geometry();
    return {inner.left() - outer.left(), inner.top() - outer.top(), outer.right() - inner.right(),
            outer.bottom() - inner.bottom()};
}
} // namespace

WTAutoResizingWindowController::WTAutoResizingWindowController(QObject* parent)
    : QObject(parent)
    , m_availableArea(screenArea)
    , m_frameMargins(reportedFrameMargins)
{}

WTAutoResizingWindowController::~WTAutoResizingWindowController() = default;

void WTAutoResizingWindowController::setAvailableArea(AvailableArea area)
{
    m_availableArea = area ? std::move(area) : AvailableArea(screenArea);
}

void WTAutoResizingWindowController::setFrameMargins(FrameMargins margins)
{
    m_frameMargins = margins ? std::move(margins) : FrameMargins(reportedFrameMargins);
}

void WTAutoResizingWindowController::setWindow(QWidget* window, QScrollArea* scrollView)
{
    m_window = window;
    m_scrollView = scrollView;
    m_windowSizeSticky = true;
    window->installEventFilter(this);
    if (scrollView != nullptr && scrollView->widget() != nullptr) {
        scrollView->widget()->installEventFilter(this);
    }
    QTimer::singleShot(0, this, &WTAutoResizingWindowController::checkSize);
}

bool WTAutoResizingWindowController::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::Resize) {
        if (m_scrollView && watched == m_scrollView->widget()) {
            documentSizeChanged();
        } else if (watched == m_window && m_shownSettled && event->spontaneous() &&
                   static_cast<QResizeEvent*>(event)->size() != m_frameSet.size()) {
            // A resize from the window system that this controller did not ask for is the
            // user's; the platform may deliver the controller's own one later, so it is told
            // apart by its size, and the placement right after showing is not the user's.
            windowDidEndLiveResize();
        }
    } else if (watched == m_window && event->type() == QEvent::Show) {
        QTimer::singleShot(0, this, [this] { m_shownSettled = true; });
    } else if (watched == m_window && event->type() == QEvent::Hide) {
        m_shownSettled = false;
    }
    return QObject::eventFilter(watched, event);
}

int WTAutoResizingWindowController::documentHeight() const
{
    QWidget* document = m_scrollView ? m_scrollView->widget() : nullptr;
    if (document == nullptr) {
        return 0;
    }
    // The document's own wish, not the height the scroll area happens to give it.
    return std::max(document->sizeHint().height(), document->minimumSizeHint().height());
}

int WTAutoResizingWindowController::visibleHeight() const
{
    return m_scrollView ? m_scrollView->viewport()->height() : 0;
}

void WTAutoResizingWindowController::windowDidEndLiveResize()
{
    m_windowSizeSticky = documentHeight() == visibleHeight();
}

void WTAutoResizingWindowController::documentSizeChanged()
{
    if (m_checkQueued) {
        return;
    }
    m_checkQueued = true;
    QTimer::singleShot(0, this, [this] {
        m_checkQueued = false;
        checkSize();
    });
}

void WTAutoResizingWindowController::checkSize()
{
    if (!m_window || !m_scrollView) {
        return;
    }
    const int document = documentHeight();
    const int visible = visibleHeight();
    if (document == visible) {
        m_windowSizeSticky = true;
        return;
    }
    if (document < visible || !m_windowSizeSticky) {
        return; // never shrinks by itself
    }
    // The frame with its title bar stays on screen, not just the inside: a title bar above
    // the screen could not be grabbed any more.
    const QRect area = m_availableArea(m_window).marginsRemoved(m_frameMargins(m_window));
    const std::optional<Growth> grown =
        grownFrame(QRectF(m_window->geometry()), qreal(document - visible), QRectF(area));
    if (!grown) {
        return;
    }
    m_windowSizeSticky = grown->sticky;
    m_frameSet = grown->frame.toRect();
    m_window->setGeometry(m_frameSet);
}

std::optional<WTAutoResizingWindowController::Growth>
WTAutoResizingWindowController::grownFrame(const QRectF& frame, qreal growth, const QRectF& area)
{
    if (growth < kMinimumGrowth) {
        return std::nullopt;
    }
    Growth grown{frame, true};
    grown.frame.setHeight(frame.height() + growth);
    if (grown.frame.bottom() > area.bottom()) {
        grown.frame.moveBottom(area.bottom());
        if (grown.frame.top() < area.top()) {
            grown.frame.setTop(area.top());
            grown.frame.setBottom(area.bottom());
            grown.sticky = false;
        }
    }
    return grown;
}
