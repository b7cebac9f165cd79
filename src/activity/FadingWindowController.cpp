#include "activity/FadingWindowController.h"

#include "activity/FadingWindowAnimation.h"
#include "preferences/MonitorDefaults.h"

#include <QCursor>
#include <QEvent>
#include <QTimer>
#include <QWidget>
#include <algorithm>

FadingWindowController::FadingWindowController(QObject* parent)
    : WTAutoResizingWindowController(parent)
    , m_dimTimer(new QTimer(this))
    , m_cursorPosition([] { return QCursor::pos(); })
{
    m_dimTimer->setInterval(int(dimEventInterval() * 1000));
    connect(m_dimTimer, &QTimer::timeout, this, &FadingWindowController::dimTime);
    m_dimTimer->start();
}

FadingWindowController::~FadingWindowController() = default;

double FadingWindowController::dimEventIntervalFor(double preference)
{
    if (preference == 0) {
        return 20;
    }
    return std::clamp(preference, 4.0, 240.0);
}

double FadingWindowController::dimEventInterval() const
{
    return dimEventIntervalFor(MonitorDefaults::standardUserDefaults().fadingWindowTimeInterval());
}

quint64 FadingWindowController::dimEventThreshold()
{
    return 1;
}

void FadingWindowController::setCursorPosition(CursorPosition position)
{
    m_cursorPosition =
        position ? std::move(position) : CursorPosition([] { return QCursor::pos(); });
}

void FadingWindowController::setWindow(QWidget* window, QScrollArea* scrollView)
{
    WTAutoResizingWindowController::setWindow(window, scrollView);
    window->setAttribute(Qt::WA_Hover);
}

bool FadingWindowController::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == window()) {
        if (event->type() == QEvent::Enter) {
            mouseEntered();
        } else if (event->type() == QEvent::Leave) {
            mouseExited();
        }
    }
    return WTAutoResizingWindowController::eventFilter(watched, event);
}

void FadingWindowController::mouseEntered()
{
    undimWindow();
}

void FadingWindowController::mouseExited()
{
    restartDimTimer();
}

void FadingWindowController::restartDimTimer()
{
    m_dimTimer->start(int(dimEventInterval() * 1000));
}

bool FadingWindowController::cursorIsOverWindow() const
{
    return window() != nullptr && window()->frameGeometry().contains(m_cursorPosition());
}

void FadingWindowController::dimTime()
{
    if (cursorIsOverWindow()) {
        undimWindow();
    } else {
        dimWindow();
    }
}

void FadingWindowController::dimWindow()
{
    if (m_dimming) {
        return;
    }
    if (++m_dimEventCount < dimEventThreshold()) {
        return;
    }
    std::unique_ptr<FadingWindowAnimation> fade =
        window() != nullptr ? FadingWindowAnimation::initWithWindow(window(), false) : nullptr;
    if (!fade) {
        m_dimTimer->stop(); // fading is off: no reason to tick again until something happens
        return;
    }
    setAlphaAnimation(std::move(fade));
    m_dimming = true;
}

void FadingWindowController::undimWindow()
{
    if (m_dimming) {
        m_dimEventCount = 0;
        if (window() != nullptr) {
            setAlphaAnimation(FadingWindowAnimation::initWithWindow(window(), true));
        }
        m_dimming = false;
    }
    restartDimTimer();
}

void FadingWindowController::setAlphaAnimation(std::unique_ptr<FadingWindowAnimation> animation)
{
    if (m_alphaAnimation) {
        m_alphaAnimation->stop();
    }
    m_alphaAnimation = std::move(animation);
    if (m_alphaAnimation) {
        m_alphaAnimation->start();
    }
}
