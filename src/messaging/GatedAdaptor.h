#pragma once

#include <QDBusAbstractAdaptor>

class ServedObject;

// The base of every adaptor this process serves, and its one gate: a call reaches a member
// only when the served object lets the caller in (ServedObject's caller check); otherwise the
// caller gets an access error and nothing runs. Adaptors are generated on top of it, or
// written by hand on top of it.
class GatedAdaptor : public QDBusAbstractAdaptor
{
public:
    explicit GatedAdaptor(QObject* parent);

    // The bus calls members through here.
    int qt_metacall(QMetaObject::Call call, int id, void** arguments) override;

private:
    ServedObject* m_served;
};
