#pragma once

#include <QMargins>
#include <QObject>
#include <QPointer>
#include <QRect>
#include <QRectF>
#include <QScrollArea>
#include <functional>
#include <optional>

class QWidget;

// A window that grows downwards as its document grows, until the screen's available area is
// full, and never shrinks by itself. A user's resize keeps the growth only when the whole
// document still fits exactly. Main thread only.
class WTAutoResizingWindowController : public QObject
{
    Q_OBJECT

public:
    // The screen area a window may cover; defaults to the window's screen.
    using AvailableArea = std::function<QRect(const QWidget* window)>;
    // The window manager's frame around the window (title bar, borders); defaults to what the
    // window reports.
    using FrameMargins = std::function<QMargins(const QWidget* window)>;

    // Growth below this many points leaves the window as it is.
    static constexpr qreal kMinimumGrowth = 1.0;

    struct Growth
    {
        QRectF frame;
        // False once the window fills the area: it stops following its document.
        bool sticky = true;
    };

    // Where a window whose document needs `growth` more points goes: the bottom edge moves down
    // and the top edge stays, all within `area`. None when the growth is too small to show.
    static std::optional<Growth> grownFrame(const QRectF& frame, qreal growth, const QRectF& area);

    explicit WTAutoResizingWindowController(QObject* parent = nullptr);
    ~WTAutoResizingWindowController() override;

    QWidget* window() const { return m_window; }
    // The scroll area is the first child of the window's content.
    virtual void setWindow(QWidget* window, QScrollArea* scrollView);
    QScrollArea* contentScrollView() const { return m_scrollView; }
    bool windowSizeSticky() const { return m_windowSizeSticky; }
    void setAvailableArea(AvailableArea area);
    void setFrameMargins(FrameMargins margins);

    void documentSizeChanged();
    void windowDidEndLiveResize();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void checkSize();
    int documentHeight() const;
    int visibleHeight() const;

    QPointer<QWidget> m_window;
    QPointer<QScrollArea> m_scrollView;
    AvailableArea m_availableArea;
    FrameMargins m_frameMargins;
    bool m_windowSizeSticky = true;
    QRect m_frameSet;
    bool m_shownSettled = false;
    bool m_checkQueued = false;
};
