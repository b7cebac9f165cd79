#include "platform/linux/WindowTaskbarPresence.h"

#include <QEvent>
#include <QGuiApplication>
#include <QWindow>

namespace {
// Converted windows carry this mark, so that only they turn back into main windows.
const char* const kConvertedProperty = "kestromAccessoryWindow";
} // namespace

WindowTaskbarPresence::WindowTaskbarPresence(Policy initial, QObject* parent)
    : QObject(parent)
    , m_policy(initial)
{
    if (QCoreApplication::instance() != nullptr) {
        QCoreApplication::instance()->installEventFilter(this);
    }
}

void WindowTaskbarPresence::setActivationPolicy(Policy policy)
{
    if (policy == m_policy) {
        return;
    }
    m_policy = policy;
    for (QWindow* window : QGuiApplication::topLevelWindows()) {
        apply(*window);
    }
}

bool WindowTaskbarPresence::eventFilter(QObject* watched, QEvent* event)
{
    // Show reaches a window before it is mapped, so the taskbar never sees the wrong kind.
    if (event->type() == QEvent::Show && watched->isWindowType()) {
        auto* window = static_cast<QWindow*>(watched);
        if (window->parent() == nullptr) {
            apply(*window);
        }
    }
    return QObject::eventFilter(watched, event);
}

void WindowTaskbarPresence::apply(QWindow& window) const
{
    const Qt::WindowFlags flags = window.flags();
    const Qt::WindowType type = window.type();
    if (m_policy == Policy::Accessory && type == Qt::Window) {
        window.setFlags((flags & ~Qt::WindowType_Mask) | Qt::Tool);
        window.setProperty(kConvertedProperty, true);
    } else if (m_policy == Policy::Regular && window.property(kConvertedProperty).toBool()) {
        window.setFlags((flags & ~Qt::WindowType_Mask) | Qt::Window);
        window.setProperty(kConvertedProperty, QVariant());
    }
}
