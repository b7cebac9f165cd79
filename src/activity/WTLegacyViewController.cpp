#include "activity/WTLegacyViewController.h"

#include <QByteArray>
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
    delete m_view.data();
}

QWidget* WTLegacyViewController::view()
{
    if (!m_legacyViewLoaded) {
        m_legacyViewLoaded = true;
        m_view = loadView();
        m_view->setProperty(kControllerProperty, QVariant::fromValue(QPointer<QObject>(this)));
        viewDidLoad();
    }
    return m_view.data();
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
