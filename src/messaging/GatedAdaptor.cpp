#include "messaging/GatedAdaptor.h"

#include "messaging/ServedObject.h"

#include <QMetaMethod>
#include <stdexcept>

GatedAdaptor::GatedAdaptor(QObject* parent)
    : QDBusAbstractAdaptor(parent)
    , m_served(qobject_cast<ServedObject*>(parent))
{
    if (m_served == nullptr) {
        throw std::logic_error("an adaptor serves only a ServedObject, which holds the gate");
    }
}

int GatedAdaptor::qt_metacall(QMetaObject::Call call, int id, void** arguments)
{
    // A refused call counts as handled: the error reply is already on its way.
    if (call == QMetaObject::InvokeMetaMethod &&
        m_served->refusesCaller(metaObject()->method(id).name().constData())) {
        return -1;
    }
    return QDBusAbstractAdaptor::qt_metacall(call, id, arguments);
}
