#pragma once

#include "activity/WTAutoResizingWindowController.h"

#include <QPoint>
#include <functional>
#include <limits>
#include <memory>

class FadingWindowAnimation;
class QTimer;

// A window that fades to a translucent opacity after it has been left alone for a number of
// timer ticks, and comes back at once when the mouse enters or something happens. The dim
// timer is the only timer of a window that runs while nothing changes. Main thread only.
class FadingWindowController : public WTAutoResizingWindowController
{
    Q_OBJECT

public:
    static constexpr quint64 kNeverDim = std::numeric_limits<quint64>::max();
    // Where the mouse is, in screen coordinates.
    using CursorPosition = std::function<QPoint()>;

    explicit FadingWindowController(QObject* parent = nullptr);
    ~FadingWindowController() override;

    // The seconds between ticks for the "KSFadingWindowTimeInterval" value.
    static double dimEventIntervalFor(double preference);
    double dimEventInterval() const;
    virtual quint64 dimEventThreshold();
    bool isDim() const { return m_dimming; }
    quint64 dimEventCount() const { return m_dimEventCount; }
    QTimer* dimTimer() const { return m_dimTimer; }
    FadingWindowAnimation* alphaAnimation() const { return m_alphaAnimation.get(); }

    void setWindow(QWidget* window, QScrollArea* scrollView) override;
    void setCursorPosition(CursorPosition position);

    void dimTime();
    void dimWindow();
    void undimWindow();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    virtual void mouseEntered();
    virtual void mouseExited();
    // Whether the mouse is over the window's frame now.
    bool cursorIsOverWindow() const;

private:
    void setAlphaAnimation(std::unique_ptr<FadingWindowAnimation> animation);
    void restartDimTimer();

    QTimer* m_dimTimer = nullptr;
    quint64 m_dimEventCount = 0;
    bool m_dimming = false;
    std::unique_ptr<FadingWindowAnimation> m_alphaAnimation;
    CursorPosition m_cursorPosition;
};
