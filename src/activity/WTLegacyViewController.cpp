#include "activity/WTLegacyViewController.h"

#include <QByteArray>
#include <QEvent>
#include <QMetaObject>
#include <QVariant>

namespace {
constexpr const char* kControllerProperty = "kestromViewController";
} // namespace

WTLegacyViewController::WTLegacyViewController(QObject* parent)
    : QObject(parent)
{}

WTLegacyViewController::~WTLegacyViewController()
{
    // The subclass is gone by now: its hooks must not run for the view's last hide.
    if (m_view) {
        m_view->removeEventFilter(this);
    }
    delete m_view.data();
}

QWidget* WTLegacyViewController::view()
{
    if (!m_legacyViewLoaded) {
        m_legacyViewLoaded = true;
        m_view = loadView();
        m_view->setProperty(kControllerProperty, QVariant::fromValue(QPointer<QObject>(this)));
        m_view->installEventFilter(this);
        viewDidLoad();
    }
    return m_view.data();
}

bool WTLegacyViewController::eventFilter(QObject* watched, QEvent* event)
{
    // Qt sends Show and Hide to a view whenever it comes on screen or leaves it, whether the view
    // itself or its window changed; a view in a hidden window gets neither. Qt tells of the
    // change only as it happens, so the will and did hooks come together. A view taken out of a
    // minimized window is hidden a second time: the flag keeps the hooks paired.
    if (watched == m_view) {
        if (event->type() == QEvent::Show && !m_viewAppeared) {
            viewWillAppear();
            m_viewAppeared = true;
            viewDidAppear();
        } else if (event->type() == QEvent::Hide && m_viewAppeared) {
            viewWillDisappear();
            m_viewAppeared = false;
            viewDidDisappear();
        }
    }
    return QObject::eventFilter(watched, event);
}

WTLegacyViewController* WTLegacyViewController::controllerOfView(const QWidget* widget)
{
    for (; widget != nullptr; widget = widget->parentWidget()) {
        const QVariant controller = widget->property(kControllerProperty);
        if (controller.isValid()) {
            return qobject_cast<WTLegacyViewController*>(
                controller.value<QPointer<QObject>>().data());
        }
    }
    return nullptr;
}

bool WTLegacyViewController::tryToPerform(const char* action, QObject* sender)
{
    const QByteArray signature = QByteArray(action) + "(QObject*)";
    if (metaObject()->indexOfMethod(signature.constData()) < 0) {
        return false;
    }
    return QMetaObject::invokeMethod(this, action, Q_ARG(QObject*, sender));
}
